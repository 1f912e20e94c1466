#include "policy_file.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <ostream>

#include "utf8.h"

namespace sentrel::cli {

PolicyFile ReadPolicyFile(const std::string& path) {
    PolicyFile result;
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        result.error = "cannot open " + path + ": " + std::strerror(errno);
        return result;
    }
    const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (file.bad()) {
        result.error = "cannot read " + path;
        return result;
    }
    if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
        static_cast<unsigned char>(bytes[1]) == 0xFE) {
        if (bytes.size() % 2 != 0) {
            result.error = path + " is not UTF-16: its length is odd";
            return result;
        }
        result.text.resize((bytes.size() - 2) / 2);
        for (std::size_t i = 0; i < result.text.size(); ++i) {
            result.text[i] =
                static_cast<char16_t>(static_cast<unsigned char>(bytes[2 + 2 * i]) |
                                      static_cast<unsigned char>(bytes[3 + 2 * i]) << 8);
        }
        return result;
    }
    const bool utf8Bom = bytes.size() >= 3 && bytes.compare(0, 3, "\xEF\xBB\xBF") == 0;
    result.text = Utf8ToUtf16(std::string_view(bytes).substr(utf8Bom ? 3 : 0));
    return result;
}

std::string WriteBytes(const std::string& path, const std::string& bytes,
                       std::ostream& standardOut) {
    if (path == "-") {
        standardOut.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        standardOut.flush();
        return standardOut ? std::string() : "cannot write standard output";
    }
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file) {
        return "cannot open " + path + " for writing: " + std::strerror(errno);
    }
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    return file ? std::string() : "cannot write " + path;
}

}  // namespace sentrel::cli
