// SPDX-License-Identifier: MIT
// The document's two readers: JSON as the platform reads it, and the flags.
#include "base/AttributeNumber.h"
#include "codexvfs/CodexVFSState.h"
#include "codexvfs/JSONDocument.h"
#include "support/Testing.h"

namespace kmv {
namespace {

using namespace std::string_literals;

std::string printed(std::string_view json) {
  const auto value = valueOfJSON(json);
  return value ? value->description() : "none";
}

TEST(JSON, IsReadAsThePlatformReadsIt) {
  EXPECT_EQ(printed(R"({"b":[1,-2,1.0,true,null],"a":"\u00e9\ud83d\ude00"})"),
            "{\n    a = \"\\U00e9\\Ud83d\\Ude00\";\n    b =     (\n        1,\n        \"-2\",\n        1,\n "
            "       1,\n"
            "        \"<null>\"\n    );\n}");
  EXPECT_EQ(printed(R"({"a":1,"a":2})"), printed(R"({"a":2})"));
  for (const char* text : {"[1,]", "{\"a\":1,}", "[[],{} , \n]", R"(["\",]",])"})
    EXPECT_NE(printed(text), "none") << text;
  for (const char* text :
       {"",      " ",        "1",        "\"a\"",         "null",      "[,]",      "{,}",
        "[1,,]", "[1] x",    "[01]",     "[+1]",          "[.5]",      "[1.]",     "['a']",
        "[NaN]", "// c\n[]", "[\"\n\"]", "[\"\\ud83d\"]", "{\"a\":,}", "{\"a\",}", "[\"\xff\"]",
        "[1\f]", "[",        "\"",       "[\"\\"})
    EXPECT_EQ(printed(text), "none") << text;
  EXPECT_NE(printed(std::string(512, '[') + std::string(512, ']')), "none");
  EXPECT_EQ(printed(std::string(513, '[') + std::string(513, ']')), "none");
}

TEST(JSON, MayBeInAnyOfTheWideEncodings) {
  const std::string plain = printed("[\"é😀\"]");
  const auto encoded = [](const auto& text, bool bigEndian) {
    std::string bytes(reinterpret_cast<const char*>(text.data()), text.size() * sizeof text[0]);
    for (std::size_t at = 0; bigEndian && at < bytes.size(); at += sizeof text[0])
      std::reverse(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                   bytes.begin() + static_cast<std::ptrdiff_t>(at + sizeof text[0]));
    return bytes;
  };
  for (const bool bigEndian : {false, true}) {
    for (const std::string& bytes :
         {encoded(u"[\"é😀\"]"s, bigEndian), encoded(U"[\"é😀\"]"s, bigEndian),
          encoded(u"\ufeff[\"é😀\"]"s, bigEndian), encoded(U"\ufeff[\"é😀\"]"s, bigEndian)}) {
      EXPECT_EQ(printed(bytes), plain);
      EXPECT_EQ(printed(bytes + "x"), "none") << "cut short";
    }
  }
  EXPECT_EQ(printed("\xef\xbb\xbf[\"é😀\"]"), plain);
  EXPECT_EQ(printed("[\0\"\0\x3d\xd8]\0"s), "none") << "half a pair";
}

TEST(CodexState, ADocumentThatIsMadeToBeLongFillsNoLog) {
  std::string most;
  OrvaneLog::defaultLog().setSink([&](OrvaneLog::Level, std::string_view line) {
    if (line.size() > most.size()) most = line;
  });
  CodexVFSState state(URL::fileURLWithPath("/nowhere/.codexvfs", /*isDirectory=*/false));
  std::string ones = "1";
  for (int i = 0; i < 30'000; ++i) ones += ",1";
  state.updateFlags(
      FileBytes{"{\"status\":" + std::string(500, '[') + ones + std::string(500, ']') + "}", {}});
  OrvaneLog::defaultLog().setSink(nullptr);
  EXPECT_GT(most.size(), 4000u);
  EXPECT_LT(most.size(), 5000u);
}

TEST(CodexState, KeepsWhatTheDocumentOnceSaid) {
  const std::string file = ::testing::TempDir() + "/kmv_document_" + std::to_string(getpid());
  CodexVFSState state(URL::fileURLWithPath(file, /*isDirectory=*/false));
  EXPECT_EQ(state.softwareVersion() + "," + state.volumeLabel(), ",unknown");
  EXPECT_FALSE(state.vfsType() || state.logFile() || state.status());
  const auto read = [&](const std::string& document) {
    std::ofstream(file) << document;
    state.updateFlags();
    std::filesystem::remove(file);
  };
  read(
      R"({"sw_version":"1.2","volume_label":"A001","vfs_type":"device","log_file":"/tmp/x.log","status":"built"})");
  state.updateFlags();  // there is none now
  read("{}");
  read(R"({"sw_version":1,"status":null})");
  EXPECT_EQ(state.softwareVersion() + "," + state.volumeLabel(), "1.2,A001");
  EXPECT_EQ(state.vfsType(), CodexVFSFlag::VFSType::device);
  EXPECT_EQ(state.logFile(), URL::fileURLWithPath("/tmp/x.log", false));
  EXPECT_EQ(state.status(), CodexVFSFlag::Status::built);
  read(R"({"vfs_type":"Device","status":"initialized","log_file":"a b/"})");
  EXPECT_EQ(state.vfsType(), std::nullopt);
  EXPECT_EQ(state.status(), std::nullopt);
  EXPECT_EQ(state.logFile(), URL::fileURLWithPath(std::filesystem::current_path().native() + "/a b", true));
  read(R"({"status":"initialising"})");
  EXPECT_EQ(state.status(), CodexVFSFlag::Status::initialising);
}

TEST(AttributeNumber, IsAWholeNumberOf64Bits) {
  EXPECT_EQ(numberInAttribute(" -42\n"), -42);
  EXPECT_EQ(numberInAttribute("+7\0\0"s), 7);
  EXPECT_EQ(numberInAttribute("-9223372036854775808"), INT64_MIN);
  for (const char* text : {"", "-", "+-5", "--5", "1 2", "12 GB", "0x10", "1.5", "9223372036854775808"})
    EXPECT_EQ(numberInAttribute(text), std::nullopt) << text;
}

}  // namespace
}  // namespace kmv
