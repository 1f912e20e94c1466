#include <iostream>
#include <string>
#include <vector>

#include "command.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>

#include "utf8.h"

// Windows hands the arguments over as UTF-16; inside they are UTF-8 like everywhere else, and the
// standard streams carry bytes unchanged.
int wmain(int argc, wchar_t** argv) {
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    std::vector<std::string> args;
    for (int i = 1; i < argc; ++i) {
        args.push_back(sentrel::cli::Utf16ToUtf8(reinterpret_cast<const char16_t*>(argv[i])));
    }
#else
int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
#endif
    std::ios::sync_with_stdio(false);
    sentrel::cli::CommandStreams streams{std::cin, std::cout, std::cerr};
    const int status = sentrel::cli::RunSentrel(args, streams);
    std::cout.flush();
    return status;
}
