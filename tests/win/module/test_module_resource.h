/* Resource ids of the test program's registration scripts. */
#pragma once

#define IDR_TEST_APPID 201
#define IDR_TEST_CLASS 202
/* Its class key goes under a volatile key that the tests create, where no lasting key can go. */
#define IDR_TEST_VOLATILE_CLASS 203
#define IDR_TEST_MALFORMED 204
/* No resource has this id. */
#define IDR_TEST_MISSING 299
