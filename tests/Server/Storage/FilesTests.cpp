#include "Foundation/Encoding.h"
#include "Foundation/Files.h"
#include "Foundation/Json.h"

#include <gtest/gtest.h>
#include <QTemporaryDir>
#include <sys/stat.h>

using namespace quillo::server;

namespace {

TEST(ServerFiles, ReplacingAFileKeepsTheOldOneWhenTheFolderIsGone) {
    const QTemporaryDir folder;
    const std::filesystem::path file = folder.filePath(u"key"_qs).toStdString();
    writeFileAtomically(file, "first");
    writeFileAtomically(file, "second");
    EXPECT_EQ(readFile(file), "second");
    struct stat status {};
    ASSERT_EQ(::stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(file.parent_path()), {}), 1) << "a temporary file";
    EXPECT_THROW(writeFileAtomically(file / "below", "x"), std::runtime_error);
    EXPECT_EQ(readFile(file), "second");
    EXPECT_EQ(readFile(file.string() + ".none"), std::nullopt);
}

TEST(ServerEncoding, TakesStandardBase64Only) {
    const std::pair<const char*, std::vector<uint8_t>> cases[] = {
        {"", {}}, {"AAE=", {0, 1}}, {"/w==", {255}}, {"+/+/", {0xfb, 0xff, 0xbf}}};
    for (const auto& [text, bytes] : cases)
        EXPECT_EQ(decodeBase64(text), bytes) << text;
    for (const char* text : {"AAE", "AA=A", "A===", "====", "-_-_", " AAEAAE=", "AA\nE", "AAE=AAE="})
        EXPECT_EQ(decodeBase64(text), std::nullopt) << text;
}

TEST(ServerJson, BoundsTheDepthOutsideStrings) {
    const auto nested = [](size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    EXPECT_TRUE(parseJson(nested(maxJsonDepth)));
    EXPECT_FALSE(parseJson(nested(maxJsonDepth + 1)));
    EXPECT_FALSE(parseJson(std::string(1000000, '[')));
    EXPECT_TRUE(parseJson(R"({"text": "[[[[[[[[[[[[[[[[[[[[[[ \" {{{{{{{{{{{{{{{"})"));
    EXPECT_FALSE(parseJson("{\"text\": \"\xff\"}"));
}

} // namespace
