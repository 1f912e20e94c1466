#include "document_output.h"

#include <cerrno>
#include <cstring>
#include <ostream>

#include "policy/guid.h"
#include "policy/hresult_error.h"
#include "policy/web_filter_xml_processor.h"
#include "utf8.h"

namespace sentrel::cli {

std::shared_ptr<DocumentOutput> DocumentOutput::Open(const std::string& path, bool utf8,
                                                     std::ostream& standardOut,
                                                     std::string& error) {
    auto output = std::make_shared<DocumentOutput>(path, utf8, standardOut);
    if (!output->temporary_.empty() && !output->file_) {
        error = "cannot open " + path + " for writing: " + std::strerror(errno);
        return nullptr;
    }
    return output;
}

DocumentOutput::DocumentOutput(const std::string& path, bool utf8, std::ostream& standardOut)
    : path_(path), utf8_(utf8), standardOut_(standardOut) {
    if (path == "-") {
        return;
    }
    temporary_ = std::filesystem::path(Utf8ToUtf16(path));
    temporary_ += u".";
    temporary_ += GuidToText(NewGuid());
    temporary_ += u".tmp";
    file_ = OpenFileForWrite(temporary_.u16string());
}

DocumentOutput::~DocumentOutput() {
    if (!temporary_.empty()) {
        file_.reset();
        std::error_code error;
        std::filesystem::remove(temporary_, error);
    }
}

bool DocumentOutput::Write(std::span<const std::uint8_t> data) {
    if (!utf8_) {
        return Put({reinterpret_cast<const char*>(data.data()), data.size()});
    }
    held_.append(reinterpret_cast<const char*>(data.data()), data.size());
    return Convert(false);
}

bool DocumentOutput::Convert(bool final) {
    units_.resize(held_.size() / sizeof(char16_t));
    std::memcpy(units_.data(), held_.data(), units_.size() * sizeof(char16_t));
    std::u16string_view text = units_;
    // A high surrogate at the end may pair with the next piece's first unit.
    if (!final && !text.empty() && text.back() >= 0xD800 && text.back() <= 0xDBFF) {
        text.remove_suffix(1);
    }
    held_.erase(0, final ? held_.size() : text.size() * sizeof(char16_t));
    // UTF-8 goes without the writer's byte order mark.
    if (!started_ && !text.empty()) {
        started_ = true;
        if (text.front() == u'\uFEFF') {
            text.remove_prefix(1);
        }
    }
    return Put(Utf16ToUtf8(text));
}

bool DocumentOutput::Put(std::string_view bytes) {
    if (file_) {
        failed_ |=
            !file_->Write({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
    } else {
        failed_ |= !standardOut_.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    return !failed_;
}

std::string DocumentOutput::Finish() {
    if (utf8_) {
        Convert(true);
    }
    if (!file_) {
        failed_ |= !standardOut_.flush();
        return failed_ ? "cannot write standard output" : std::string();
    }
    // The file is closed before it is renamed, which Windows requires.
    file_.reset();
    std::error_code error;
    if (!failed_) {
        std::filesystem::rename(temporary_, std::filesystem::path(Utf8ToUtf16(path_)), error);
    }
    if (failed_ || error) {
        return "cannot write " + path_;
    }
    temporary_.clear();
    return {};
}

std::string WritePolicyDocument(const WebFilterPolicy& policy, const std::string& path, bool utf8,
                                std::ostream& standardOut) {
    std::string error;
    const std::shared_ptr<DocumentOutput> output =
        DocumentOutput::Open(path, utf8, standardOut, error);
    if (!output) {
        return error;
    }
    try {
        if (!WebFilterXmlProcessor::WritePolicy(policy, output)) {
            return "the policy holds a list of unknown type";
        }
    } catch (const HResultError& failure) {
        if (output->Failed()) {
            return output->Finish();
        }
        return failure.Result() == kHResultOutOfMemory
                   ? "memory ran out while the document was written"
                   : "the policy holds text that XML cannot carry";
    }
    return output->Finish();
}

}  // namespace sentrel::cli
