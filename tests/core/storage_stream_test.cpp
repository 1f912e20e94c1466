#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "policy/byte_stream.h"
#include "policy/utf16le.h"
#include "policy/web_filter_storage_data_stream.h"
#include "xml_test_support.h"

namespace sentrel {
namespace {

using testing::TemporaryFile;

std::vector<std::uint8_t> Bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

std::string ReadAll(ByteStream& stream) {
    std::string text(64, '\0');
    const std::size_t count =
        stream.Read(std::span(reinterpret_cast<std::uint8_t*>(text.data()), text.size()));
    text.resize(count);
    return text;
}

TEST(MemoryStream, WritingAtTheStartOverwritesAndKeepsTheRest) {
    const auto stream = CreateMemoryStream();
    ASSERT_TRUE(stream->Write(Bytes("abcdef")));
    ASSERT_TRUE(stream->SeekToStart());
    ASSERT_TRUE(stream->Write(Bytes("XY")));
    EXPECT_EQ(ReadAll(*stream), "cdef");
    ASSERT_TRUE(stream->SeekToStart());
    ASSERT_TRUE(stream->Write(Bytes("0123456789")));
    EXPECT_EQ(stream->Size(), 10u);
    ASSERT_TRUE(stream->SeekToStart());
    EXPECT_EQ(ReadAll(*stream), "0123456789");
}

TEST(MemoryStream, ReadsFewerBytesOnlyAtTheEnd) {
    const auto stream = CreateMemoryStream();
    ASSERT_TRUE(stream->Write(Bytes("abc")));
    ASSERT_TRUE(stream->SeekToStart());
    std::array<std::uint8_t, 2> buffer{};
    EXPECT_EQ(stream->Read(buffer), 2u);
    EXPECT_EQ(stream->Read(buffer), 1u);
    EXPECT_EQ(buffer[0], 'c');
    EXPECT_EQ(stream->Read(buffer), 0u);
}

TEST(FileStream, WriteCreatesOrCutsAndReadGivesTheContent) {
    const TemporaryFile file(u"sentrel-stream-\u00E9\u4E2D.bin");
    {
        const auto stream = OpenFileForWrite(file.Path());
        ASSERT_NE(stream, nullptr);
        ASSERT_TRUE(stream->Write(Bytes("a longer first content")));
        EXPECT_EQ(stream->Size(), 22u);
        // Opened for writing only: nothing can be read back.
        ASSERT_TRUE(stream->SeekToStart());
        EXPECT_EQ(ReadAll(*stream), "");
    }
    {
        const auto stream = OpenFileForWrite(file.Path());
        ASSERT_NE(stream, nullptr);
        EXPECT_EQ(stream->Size(), 0u);
        ASSERT_TRUE(stream->Write(Bytes("short")));
    }
    const auto stream = OpenFileForRead(file.Path());
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(stream->Size(), 5u);
    EXPECT_EQ(ReadAll(*stream), "short");
    EXPECT_FALSE(stream->Write(Bytes("x")));
    ASSERT_TRUE(stream->SeekToStart());
    EXPECT_EQ(ReadAll(*stream), "short");
}

TEST(FileStream, MissingFileOrFolderCannotBeOpened) {
    const TemporaryFile file(u"sentrel-missing.bin");
    EXPECT_EQ(OpenFileForRead(file.Path()), nullptr);
    EXPECT_FALSE(file.Exists());
    EXPECT_EQ(OpenFileForWrite(file.Path() + u"/no/such/folder/x.bin"), nullptr);
}

TEST(WebFilterStorageDataStream, FreshObjectHoldsNothing) {
    CWebFilterStorageDataStream storage;
    EXPECT_EQ(storage.GetStream(), nullptr);
    EXPECT_EQ(storage.GetSize(), 0u);
    std::vector<std::uint8_t> buffer{1, 2, 3};
    std::uint32_t size = 99;
    EXPECT_FALSE(storage.ReadBuffer(buffer, size));
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(buffer, (std::vector<std::uint8_t>{0, 0}));
    EXPECT_EQ(storage.ReadText(), u"");
}

TEST(WebFilterStorageDataStream, TextComesBackAsItWent) {
    const std::vector<std::u16string> texts = {
        u"", u"a", u"\uFEFF<WebFilters/>", u"\u00E9\U0001F600\uFFFD", std::u16string(100000, u'x')};
    for (const std::u16string& text : texts) {
        CWebFilterStorageDataStream storage;
        ASSERT_TRUE(storage.WriteText(text));
        EXPECT_EQ(storage.GetSize(), text.size() * 2);
        EXPECT_EQ(storage.ReadText(), text);
        // Reading does not use the text up.
        EXPECT_EQ(storage.ReadText(), text);
    }
}

TEST(WebFilterStorageDataStream, TextEndsAtTheFirstZeroCodeUnit) {
    CWebFilterStorageDataStream storage;
    ASSERT_TRUE(storage.WriteText(std::u16string(u"ab\0cd", 5)));
    EXPECT_EQ(storage.GetSize(), 10u);
    EXPECT_EQ(storage.ReadText(), u"ab");
}

TEST(WebFilterStorageDataStream, SecondTextReplacesTheFirst) {
    CWebFilterStorageDataStream storage;
    ASSERT_TRUE(storage.WriteText(u"a rather long first text"));
    ASSERT_TRUE(storage.WriteText(u"xy"));
    EXPECT_EQ(storage.GetSize(), 4u);
    EXPECT_EQ(storage.ReadText(), u"xy");
}

TEST(WebFilterStorageDataStream, WrittenBufferIsPositionedForReading) {
    CWebFilterStorageDataStream storage;
    const std::vector<std::uint8_t> data = Bytes(std::string_view("<\0a\0", 4));
    ASSERT_TRUE(storage.WriteBuffer(data.data(), static_cast<std::uint32_t>(data.size())));
    EXPECT_EQ(ReadAll(*storage.GetStream()), std::string("<\0a\0", 4));
}

TEST(WebFilterStorageDataStream, OddByteCountReadsNothingBeyondTheBuffer) {
    // The last byte pairs with the first terminating zero; the sanitizers watch the buffer's end.
    const std::vector<std::pair<std::vector<std::uint8_t>, std::u16string>> cases = {
        {{0x41}, u"A"},
        {{0x41, 0x00, 0x42}, u"AB"},
        {{0x41, 0x00, 0x00}, u"A"},
        {{0x3D, 0xD8, 0x00, 0xDE, 0x7F}, u"\U0001F600\u007F"},
    };
    for (const auto& [bytes, expected] : cases) {
        CWebFilterStorageDataStream storage;
        ASSERT_TRUE(storage.WriteBuffer(bytes.data(), static_cast<std::uint32_t>(bytes.size())));
        std::vector<std::uint8_t> buffer;
        std::uint32_t size = 0;
        ASSERT_TRUE(storage.ReadBuffer(buffer, size));
        EXPECT_EQ(size, bytes.size());
        EXPECT_EQ(buffer.size(), bytes.size() + 2);
        EXPECT_EQ(storage.ReadText(), expected);
    }
}

TEST(WebFilterStorageDataStream, InMemoryWriteStreamGivesBackWhatWasWritten) {
    CWebFilterStorageDataStream storage;
    ASSERT_TRUE(storage.OpenWrite(u""));
    EXPECT_EQ(storage.GetSize(), 0u);
    ASSERT_TRUE(storage.GetStream()->Write(AsUtf16LeBytes(u"written")));
    EXPECT_EQ(storage.ReadText(), u"written");
    // Opening anew starts over.
    ASSERT_TRUE(storage.OpenRead(u""));
    EXPECT_EQ(storage.ReadText(), u"");
}

TEST(WebFilterStorageDataStream, FileRoundTripAndFailedOpenLeavesNoStream) {
    const TemporaryFile file(u"sentrel-storage.xml");
    CWebFilterStorageDataStream storage;
    ASSERT_TRUE(storage.OpenWrite(file.Path()));
    ASSERT_TRUE(storage.GetStream()->Write(AsUtf16LeBytes(u"\uFEFF<a/>")));
    // A file opened for writing cannot be read back.
    EXPECT_EQ(storage.ReadText(), u"");
    ASSERT_TRUE(storage.OpenRead(file.Path()));
    EXPECT_EQ(storage.GetSize(), 10u);
    EXPECT_EQ(storage.ReadText(), u"\uFEFF<a/>");

    EXPECT_FALSE(storage.OpenRead(file.Path() + u".missing"));
    EXPECT_EQ(storage.GetStream(), nullptr);
    EXPECT_EQ(storage.GetSize(), 0u);
    EXPECT_EQ(storage.ReadText(), u"");
}

}  // namespace
}  // namespace sentrel
