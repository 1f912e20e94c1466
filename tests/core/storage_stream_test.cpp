#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core_test_support.h"
#include "policy/utf16le.h"
#include "policy/web_filter_storage_data_stream.h"

namespace sentrel {
namespace {

TEST(WebFilterStorageDataStream, ReadsWhatWasWrittenAndNothingBeyondIt) {
    CWebFilterStorageDataStream storage;
    std::vector<std::uint8_t> buffer;
    std::uint32_t size = 0;
    EXPECT_FALSE(storage.ReadBuffer(buffer, size) || !storage.ReadText().empty());
    // An odd last byte pairs with the first terminating zero; the sanitizers watch the end.
    const std::pair<std::vector<std::uint8_t>, std::u16string> cases[] = {
        {{0x41}, u"A"},
        {{0x41, 0x00, 0x42}, u"AB"},
        {{0x3D, 0xD8, 0x00, 0xDE, 0x7F}, u"\U0001F600\u007F"},
        {{0x41, 0x00, 0x00, 0x00, 0x42, 0x00}, u"A"},
    };
    for (const auto& [bytes, expected] : cases) {
        ASSERT_TRUE(storage.WriteBuffer(bytes.data(), static_cast<std::uint32_t>(bytes.size())));
        ASSERT_TRUE(storage.ReadBuffer(buffer, size) && buffer.size() == bytes.size() + 2);
        EXPECT_EQ(storage.ReadText(), expected);
    }
    // Writing over the start of what is held keeps the rest, as a stream on memory does.
    ASSERT_TRUE(storage.WriteText(u"AB") && storage.GetStream()->Write(AsUtf16LeBytes(u"x")));
    EXPECT_EQ(storage.ReadText(), u"xB");
    // Opened streams start empty in memory, or in a file.
    const test::TemporaryFile file(u"sentrel-storage-\u00E9\u4E2D.xml");
    EXPECT_FALSE(storage.OpenRead(file.Path()));
    EXPECT_EQ(storage.GetStream(), nullptr);
    EXPECT_FALSE(storage.OpenWrite(file.Path() + u"/no/such/folder/x.xml"));
    // The second text written to the file is shorter: the file is cut to it.
    const std::pair<std::u16string, std::u16string> files[] = {
        {u"", u"<a/>"}, {file.Path(), u"<longer/>"}, {file.Path(), u"<a/>"}};
    for (const auto& [path, text] : files) {
        ASSERT_TRUE(storage.OpenWrite(path));
        ASSERT_TRUE(storage.GetStream()->Write(AsUtf16LeBytes(text)));
        EXPECT_EQ(storage.GetSize(), text.size() * 2);
        // A file opened for writing cannot be read back; memory can.
        EXPECT_EQ(storage.ReadText(), path.empty() ? text : u"");
        // Opening again starts over in memory, and reads what the file holds.
        ASSERT_TRUE(storage.OpenRead(path));
        EXPECT_EQ(storage.ReadText(), path.empty() ? u"" : text);
        EXPECT_EQ(storage.GetStream()->Write(AsUtf16LeBytes(u"x")), path.empty());
    }
}

}  // namespace
}  // namespace sentrel
