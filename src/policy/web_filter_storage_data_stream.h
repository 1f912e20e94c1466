#pragma once

#include <utility>

#include "policy/web_filter_storage_data.h"

namespace sentrel {

// The storage over one byte stream: in memory, or a file when a path is given.
class CWebFilterStorageDataStream final : public IWebFilterStorageData {
  public:
    CWebFilterStorageDataStream() = default;
    // Holding a stream opened elsewhere.
    explicit CWebFilterStorageDataStream(std::shared_ptr<ByteStream> stream)
        : stream_(std::move(stream)) {}

    std::uint32_t GetSize() override;
    const std::shared_ptr<ByteStream>& GetStream() override { return stream_; }
    bool OpenRead(const std::u16string& path) override;
    bool OpenWrite(const std::u16string& path) override;
    bool ReadBuffer(std::vector<std::uint8_t>& buffer, std::uint32_t& size) override;
    std::u16string ReadText() override;
    bool WriteBuffer(const std::uint8_t* data, std::uint32_t size) override;
    bool WriteText(const std::u16string& text) override;

  private:
    // Reads the held stream from its start into content, which must take all of it.
    bool ReadWhole(std::span<std::uint8_t> content);

    std::shared_ptr<ByteStream> stream_;
};

}  // namespace sentrel
