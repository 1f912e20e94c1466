/* Resource ids of Sentrel64.dll, shared by the resource script and the module's code. */
#pragma once

#define IDS_PROJNAME 100
#define IDR_SENTREL 101
#define IDR_WEBFILTERMANAGER 102
