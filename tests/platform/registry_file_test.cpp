// The file-backed registry: real .reg files written to a temporary folder and
// read through the platform's registry calls, as the settings reader reads
// them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "platform/posix/registry_file_parser.h"

namespace pelarix::platform {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

constexpr const char *kHeader5 = "Windows Registry Editor Version 5.00\r\n\r\n";

std::vector<uint8_t> Bytes(std::string_view text) {
  return {text.begin(), text.end()};
}

// The file as the registry editor saves it on Windows: UTF-16LE behind FF FE.
std::string Utf16LeFile(std::u16string_view text) {
  std::string bytes = "\xFF\xFE";
  for (char16_t unit : text) {
    bytes.push_back(static_cast<char>(unit & 0xFF));
    bytes.push_back(static_cast<char>(unit >> 8));
  }
  return bytes;
}

struct QueryResult {
  uint32_t error;
  uint32_t type;
  std::vector<uint8_t> data;
};

class RegistryFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() /
           ("pelarix-registry-" + std::to_string(::getpid()) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(dir_);
    file_ = dir_ / "registry.reg";
    ::setenv("PELARIX_REGISTRY", file_.c_str(), 1);
  }
  void TearDown() override {
    ::unsetenv("PELARIX_REGISTRY");
    std::filesystem::remove_all(dir_);
  }

  void WriteFile(const std::string &bytes) {
    std::ofstream out(file_, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }

  // Opens the key, or fails the test.
  RegistryKey Open(const char *path) {
    RegistryKey key = nullptr;
    EXPECT_EQ(RegistryOpenKey(path, 0x20019, &key), kErrorSuccess) << path;
    return key;
  }

  static QueryResult Query(RegistryKey key, const char *name) {
    QueryResult result{0, 0xFFFF, {}};
    uint32_t size = 0;
    result.error = RegistryQueryValue(key, name, &result.type, nullptr, &size);
    if (result.error != kErrorSuccess) return result;
    result.data.assign(size, 0xCC);
    result.error = RegistryQueryValue(key, name, &result.type, result.data.data(), &size);
    EXPECT_EQ(size, result.data.size());
    return result;
  }

  // One value of one key of a fresh file.
  QueryResult QueryIn(const std::string &file, const char *path, const char *name) {
    WriteFile(file);
    RegistryKey key = Open(path);
    QueryResult result = Query(key, name);
    RegistryCloseKey(key);
    return result;
  }

  std::filesystem::path dir_;
  std::filesystem::path file_;
};

TEST_F(RegistryFileTest, MissingFileMeansNoKeyExists) {
  RegistryKey key = reinterpret_cast<RegistryKey>(0x1);
  EXPECT_EQ(RegistryOpenKey("Software\\Tessarin, Inc.\\Tessarin Halden\\USB", 0x20119, &key),
            kErrorFileNotFound);
  EXPECT_EQ(key, nullptr);
}

TEST_F(RegistryFileTest, FolderInPlaceOfTheFileMeansNoKeyExists) {
  std::filesystem::create_directories(file_);
  RegistryKey key = nullptr;
  EXPECT_EQ(RegistryOpenKey("Software", 0x20019, &key), kErrorFileNotFound);
  EXPECT_EQ(key, nullptr);
}

TEST_F(RegistryFileTest, EmptyVariableFallsBackToTheDefaultPath) {
  if (std::filesystem::exists("/etc/pelarix/registry.reg")) {
    GTEST_SKIP() << "this machine has a registry file of its own";
  }
  WriteFile(std::string(kHeader5) + "[HKEY_LOCAL_MACHINE\\Software]\r\n");
  ::setenv("PELARIX_REGISTRY", "", 1);
  RegistryKey key = nullptr;
  EXPECT_EQ(RegistryOpenKey("Software", 0x20019, &key), kErrorFileNotFound);
  ::unsetenv("PELARIX_REGISTRY");
  EXPECT_EQ(RegistryOpenKey("Software", 0x20019, &key), kErrorFileNotFound);
}

TEST_F(RegistryFileTest, KeyExistsWhenItsSectionExists) {
  WriteFile(std::string(kHeader5) + "[HKEY_LOCAL_MACHINE\\Software\\A]\r\n");
  RegistryKey key = nullptr;
  EXPECT_EQ(RegistryOpenKey("Software\\A", 0x20019, &key), kErrorSuccess);
  EXPECT_NE(key, nullptr);
  EXPECT_EQ(Query(key, "Anything").error, kErrorFileNotFound);
  RegistryCloseKey(key);
  key = reinterpret_cast<RegistryKey>(0x1);
  EXPECT_EQ(RegistryOpenKey("Software\\B", 0x20019, &key), kErrorFileNotFound);
  EXPECT_EQ(key, nullptr);
}

TEST_F(RegistryFileTest, KeysAboveASectionExistToo) {
  WriteFile(std::string(kHeader5) + "[HKEY_LOCAL_MACHINE\\Software\\A\\B\\C]\r\n");
  for (const char *path : {"Software", "Software\\A", "Software\\A\\B", "Software\\A\\B\\C"}) {
    RegistryCloseKey(Open(path));
  }
  RegistryKey key = nullptr;
  EXPECT_EQ(RegistryOpenKey("Software\\A\\B\\C\\D", 0x20019, &key), kErrorFileNotFound);
  EXPECT_EQ(RegistryOpenKey("Software\\A\\B\\", 0x20019, &key), kErrorSuccess);
  RegistryCloseKey(key);
}

TEST_F(RegistryFileTest, EveryValueTypeOfAVersion5File) {
  WriteFile(std::string(kHeader5) +
            "[HKEY_LOCAL_MACHINE\\Software\\Values]\r\n"
            "\"Text\"=\"m:vid-1234_pid-5678;vid-0e0f_pid-0001\"\r\n"
            "\"Escaped\"=\"a \\\"quoted\\\" C:\\\\path\"\r\n"
            "\"Empty\"=\"\"\r\n"
            "\"Number\"=dword:0000abcd\r\n"
            "\"Short\"=dword:7\r\n"
            "\"Blob\"=hex:01,02,ff\r\n"
            "\"NoBytes\"=hex:\r\n"
            "\"Multi\"=hex(7):61,00,62,00,00,00,63,00,00,00,00,00\r\n"
            "\"Expand\"=hex(2):25,00,41,00,25,00,00,00\r\n"
            "\"Qword\"=hex(b):01,00,00,00,00,00,00,80\r\n"
            "\"Unicode\"=hex(1):47,00,e4,00,00,00\r\n"
            "@=\"default\"\r\n");
  RegistryKey key = Open("Software\\Values");
  QueryResult r = Query(key, "Text");
  EXPECT_EQ(r.error, kErrorSuccess);
  EXPECT_EQ(r.type, kRegSz);
  EXPECT_EQ(r.data, Bytes(std::string("m:vid-1234_pid-5678;vid-0e0f_pid-0001") + '\0'));
  r = Query(key, "Escaped");
  EXPECT_EQ(r.type, kRegSz);
  EXPECT_EQ(r.data, Bytes(std::string("a \"quoted\" C:\\path") + '\0'));
  r = Query(key, "Empty");
  EXPECT_EQ(r.type, kRegSz);
  EXPECT_THAT(r.data, ElementsAre(0));
  r = Query(key, "Number");
  EXPECT_EQ(r.type, kRegDword);
  EXPECT_THAT(r.data, ElementsAre(0xcd, 0xab, 0x00, 0x00));
  r = Query(key, "Short");
  EXPECT_EQ(r.type, kRegDword);
  EXPECT_THAT(r.data, ElementsAre(7, 0, 0, 0));
  r = Query(key, "Blob");
  EXPECT_EQ(r.type, kRegBinary);
  EXPECT_THAT(r.data, ElementsAre(0x01, 0x02, 0xff));
  r = Query(key, "NoBytes");
  EXPECT_EQ(r.error, kErrorSuccess);
  EXPECT_EQ(r.type, kRegBinary);
  EXPECT_TRUE(r.data.empty());
  r = Query(key, "Multi");
  EXPECT_EQ(r.type, kRegMultiSz);
  EXPECT_EQ(r.data, Bytes(std::string("ab\0c\0\0", 6)));
  r = Query(key, "Expand");
  EXPECT_EQ(r.type, kRegExpandSz);
  EXPECT_EQ(r.data, Bytes(std::string("%A%\0", 4)));
  r = Query(key, "Qword");
  EXPECT_EQ(r.type, 11u);
  EXPECT_THAT(r.data, ElementsAre(1, 0, 0, 0, 0, 0, 0, 0x80));
  r = Query(key, "Unicode");
  EXPECT_EQ(r.type, kRegSz);
  EXPECT_EQ(r.data, Bytes(std::string("G\xC3\xA4\0", 4)));
  r = Query(key, "");
  EXPECT_EQ(r.type, kRegSz);
  EXPECT_EQ(r.data, Bytes(std::string("default\0", 8)));
  r = Query(key, nullptr);
  EXPECT_EQ(r.data, Bytes(std::string("default\0", 8)));
  RegistryCloseKey(key);
}

TEST_F(RegistryFileTest, Regedit4FileKeepsTextBytesNarrow) {
  WriteFile(
      "REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\Software\\Old]\n"
      "\"Multi\"=hex(7):76,69,64,5f,31,00,78,00,00\n"
      "\"Number\"=dword:00000010\n");
  RegistryKey key = Open("Software\\Old");
  QueryResult r = Query(key, "Multi");
  EXPECT_EQ(r.type, kRegMultiSz);
  EXPECT_EQ(r.data, Bytes(std::string("vid_1\0x\0\0", 9)));
  r = Query(key, "Number");
  EXPECT_THAT(r.data, ElementsAre(0x10, 0, 0, 0));
  RegistryCloseKey(key);
}

TEST_F(RegistryFileTest, Utf16FileWithByteOrderMark) {
  WriteFile(
      Utf16LeFile(u"Windows Registry Editor Version 5.00\r\n\r\n"
                  u"[HKEY_LOCAL_MACHINE\\Software\\Ger\u00e4te]\r\n"
                  u"\"Name\"=\"\u00fcber \U0001F50C\"\r\n"
                  u"\"Multi\"=hex(7):e4,00,00,00,00,00\r\n"));
  RegistryKey key = Open("Software\\Ger\xC3\xA4te");
  QueryResult r = Query(key, "Name");
  EXPECT_EQ(r.type, kRegSz);
  EXPECT_EQ(r.data, Bytes(std::string("\xC3\xBC"
                                      "ber \xF0\x9F\x94\x8C\0",
                                      11)));
  r = Query(key, "Multi");
  EXPECT_EQ(r.data, Bytes(std::string("\xC3\xA4\0\0", 4)));
  RegistryCloseKey(key);
}

TEST_F(RegistryFileTest, Utf8FileWithByteOrderMark) {
  const QueryResult r =
      QueryIn(std::string("\xEF\xBB\xBF") + kHeader5 + "[HKLM\\Software\\X]\r\n\"A\"=\"b\"\r\n",
              "Software\\X", "A");
  EXPECT_EQ(r.error, kErrorSuccess);
  EXPECT_EQ(r.data, Bytes(std::string("b\0", 2)));
}

TEST_F(RegistryFileTest, LoneSurrogateInUtf16TextBecomesReplacementCharacter) {
  const QueryResult r = QueryIn(
      std::string(kHeader5) + "[HKLM\\Software\\X]\r\n\"A\"=hex(1):00,d8,41,00,00,00,7a\r\n",
      "Software\\X", "A");
  EXPECT_EQ(r.type, kRegSz);
  EXPECT_EQ(r.data, Bytes(std::string("\xEF\xBF\xBD"
                                      "A\0",
                                      5)));
}

TEST_F(RegistryFileTest, FileWithoutHeaderHasNoKeys) {
  WriteFile("[HKEY_LOCAL_MACHINE\\Software\\X]\r\n\"A\"=\"b\"\r\n");
  RegistryKey key = nullptr;
  EXPECT_EQ(RegistryOpenKey("Software\\X", 0x20019, &key), kErrorFileNotFound);
  WriteFile("Windows Registry Editor Version 4.00\r\n[HKEY_LOCAL_MACHINE\\Software\\X]\r\n");
  EXPECT_EQ(RegistryOpenKey("Software\\X", 0x20019, &key), kErrorFileNotFound);
  EXPECT_EQ(key, nullptr);
}

TEST_F(RegistryFileTest, HeaderMayFollowBlankLinesAndComments) {
  const QueryResult r = QueryIn("\r\n; settings of the agent\r\n" + std::string(kHeader5) +
                                    "[HKLM\\Software\\X]\r\n\"A\"=dword:1\r\n",
                                "Software\\X", "A");
  EXPECT_EQ(r.error, kErrorSuccess);
}

TEST_F(RegistryFileTest, ShortAndLongHiveNamesInAnyCase) {
  WriteFile(std::string(kHeader5) +
            "[hklm\\Software\\One]\r\n\"A\"=dword:1\r\n"
            "[hkey_local_machine\\SOFTWARE\\Two]\r\n\"B\"=dword:2\r\n");
  RegistryKey key = Open("software\\ONE");
  EXPECT_EQ(Query(key, "a").data, std::vector<uint8_t>({1, 0, 0, 0}));
  RegistryCloseKey(key);
  key = Open("Software\\two");
  EXPECT_EQ(Query(key, "B").data, std::vector<uint8_t>({2, 0, 0, 0}));
  RegistryCloseKey(key);
}

TEST_F(RegistryFileTest, ValueNamesCompareWithoutCase) {
  const QueryResult r =
      QueryIn(std::string(kHeader5) + "[HKLM\\Software\\X]\r\n\"ExpectedItemLength\"=dword:100\r\n",
              "Software\\X", "EXPECTEDitemlength");
  EXPECT_EQ(r.error, kErrorSuccess);
  EXPECT_THAT(r.data, ElementsAre(0, 1, 0, 0));
}

TEST_F(RegistryFileTest, OtherHivesAreIgnored) {
  WriteFile(std::string(kHeader5) +
            "[HKEY_CURRENT_USER\\Software\\X]\r\n\"A\"=dword:1\r\n"
            "[HKLM\\Software\\Y]\r\n\"A\"=dword:2\r\n");
  RegistryKey key = nullptr;
  EXPECT_EQ(RegistryOpenKey("Software\\X", 0x20019, &key), kErrorFileNotFound);
  const RegistryFile file =
      RegistryFile::Parse(std::string(kHeader5) + "[HKCU\\Software\\X]\r\n\"A\"=dword:1\r\n");
  EXPECT_EQ(file.MalformedLines(), 0u);
  EXPECT_EQ(file.FindKey("Software\\X"), nullptr);
}

TEST_F(RegistryFileTest, CommentsAreDroppedButNotInsideQuotes) {
  WriteFile(std::string(kHeader5) +
            "; a comment line\r\n"
            "[HKLM\\Software\\X] ; the key\r\n"
            "\"A\"=\"one;two\" ; trailing\r\n"
            "\"B\"=dword:00000005;no blank before\r\n"
            "  ;\"C\"=dword:1\r\n");
  RegistryKey key = Open("Software\\X");
  EXPECT_EQ(Query(key, "A").data, Bytes(std::string("one;two\0", 8)));
  EXPECT_THAT(Query(key, "B").data, ElementsAre(5, 0, 0, 0));
  EXPECT_EQ(Query(key, "C").error, kErrorFileNotFound);
  RegistryCloseKey(key);
}

TEST_F(RegistryFileTest, HexDataContinuesOverLines) {
  WriteFile(std::string(kHeader5) +
            "[HKLM\\Software\\X]\r\n"
            "\"noncdl\"=hex:00,05,01,12,34,56,78,\\\r\n"
            "  00,00,00,0f ; eleven bytes\r\n"
            "\"Multi\"=hex(7):61,00,\\\r\n"
            "  00,00,\\\r\n"
            "  00,00\r\n");
  RegistryKey key = Open("Software\\X");
  EXPECT_THAT(Query(key, "noncdl").data,
              ElementsAre(0x00, 0x05, 0x01, 0x12, 0x34, 0x56, 0x78, 0x00, 0x00, 0x00, 0x0f));
  EXPECT_EQ(Query(key, "Multi").data, Bytes(std::string("a\0\0", 3)));
  RegistryCloseKey(key);
}

TEST_F(RegistryFileTest, ContinuationOnTheLastLineEndsTheValue) {
  const QueryResult r = QueryIn(std::string(kHeader5) + "[HKLM\\Software\\X]\n\"A\"=hex:01,02,\\",
                                "Software\\X", "A");
  EXPECT_THAT(r.data, ElementsAre(1, 2));
}

TEST_F(RegistryFileTest, LineEndingsOfEitherKind) {
  const QueryResult r =
      QueryIn("Windows Registry Editor Version 5.00\n[HKLM\\Software\\X]\n\"A\"=\"b\"\n",
              "Software\\X", "A");
  EXPECT_EQ(r.data, Bytes(std::string("b\0", 2)));
}

TEST_F(RegistryFileTest, BlanksAroundTheEqualsSign) {
  const QueryResult r =
      QueryIn(std::string(kHeader5) + "[HKLM\\Software\\X]\r\n  \"A\" =  dword:2  \r\n",
              "Software\\X", "A");
  EXPECT_THAT(r.data, ElementsAre(2, 0, 0, 0));
}

TEST_F(RegistryFileTest, MalformedLineCostsThatLineOnly) {
  const std::string text = std::string(kHeader5) +
                           "\"Orphan\"=dword:1\r\n"  // before any section
                           "[HKLM\\Software\\X]\r\n"
                           "\"BadEscape\"=\"C:\\path\"\r\n"  // \p is no escape
                           "\"Open\"=\"no end\r\n"           // unterminated text
                           "\"Long\"=dword:123456789\r\n"    // nine digits
                           "\"NotHex\"=dword:12g4\r\n"
                           "\"NoDigits\"=dword:\r\n"
                           "\"BadByte\"=hex:01,zz\r\n"
                           "\"WideByte\"=hex:100\r\n"
                           "\"BadType\"=hex(x):01\r\n"
                           "\"Junk\"=\"a\" b\r\n"
                           "\"NoEquals\" dword:1\r\n"
                           "\"Unknown\"=qword:1\r\n"
                           "garbage line\r\n"
                           "\"Good\"=dword:2\r\n"
                           "[HKLM\\Software\\Y\r\n"  // no closing bracket
                           "\"Lost\"=dword:3\r\n"    // belongs to no key
                           "[HKEY_NOWHERE\\Z]\r\n"
                           "[HKLM\\Software\\X]\r\n"
                           "\"After\"=dword:4\r\n";
  const RegistryFile file = RegistryFile::Parse(text);
  EXPECT_TRUE(file.HasHeader());
  EXPECT_EQ(file.MalformedLines(), 16u);
  const RegistryFileKey *key = file.FindKey("Software\\X");
  ASSERT_NE(key, nullptr);
  std::vector<std::string> names;
  for (const auto &[name, value] : *key) names.push_back(name);
  EXPECT_THAT(names, ElementsAre("after", "good"));
  EXPECT_EQ(file.FindKey("Software\\Y"), nullptr);

  WriteFile(text);
  RegistryKey opened = Open("Software\\X");
  EXPECT_THAT(Query(opened, "Good").data, ElementsAre(2, 0, 0, 0));
  EXPECT_THAT(Query(opened, "After").data, ElementsAre(4, 0, 0, 0));
  EXPECT_EQ(Query(opened, "BadEscape").error, kErrorFileNotFound);
  RegistryCloseKey(opened);
}

TEST_F(RegistryFileTest, LaterValueAndRepeatedSectionsWin) {
  WriteFile(std::string(kHeader5) +
            "[HKLM\\Software\\X]\r\n\"A\"=dword:1\r\n\"B\"=dword:1\r\n"
            "[HKLM\\Software\\Other]\r\n"
            "[HKLM\\software\\x]\r\n\"a\"=dword:2\r\n");
  RegistryKey key = Open("Software\\X");
  EXPECT_THAT(Query(key, "A").data, ElementsAre(2, 0, 0, 0));
  EXPECT_THAT(Query(key, "B").data, ElementsAre(1, 0, 0, 0));
  RegistryCloseKey(key);
}

TEST_F(RegistryFileTest, DeletionsRemoveValuesAndKeyTrees) {
  WriteFile(std::string(kHeader5) +
            "[HKLM\\Software\\X]\r\n\"A\"=dword:1\r\n\"B\"=dword:1\r\n\"A\"=-\r\n"
            "[HKLM\\Software\\Gone\\Below]\r\n\"C\"=dword:1\r\n"
            "[HKLM\\Software\\GoneToo]\r\n"
            "[-HKLM\\Software\\Gone]\r\n\"D\"=dword:1\r\n");
  RegistryKey key = Open("Software\\X");
  EXPECT_EQ(Query(key, "A").error, kErrorFileNotFound);
  EXPECT_EQ(Query(key, "B").error, kErrorSuccess);
  RegistryCloseKey(key);
  EXPECT_EQ(RegistryOpenKey("Software\\Gone", 0x20019, &key), kErrorFileNotFound);
  EXPECT_EQ(RegistryOpenKey("Software\\Gone\\Below", 0x20019, &key), kErrorFileNotFound);
  RegistryCloseKey(Open("Software\\GoneToo"));
}

TEST_F(RegistryFileTest, QueryBehavesLikeTheNarrowSystemCall) {
  WriteFile(std::string(kHeader5) + "[HKLM\\Software\\X]\r\n\"Text\"=\"abc\"\r\n");
  RegistryKey key = Open("Software\\X");
  uint32_t type = 0;
  uint32_t size = 0;
  EXPECT_EQ(RegistryQueryValue(key, "Text", &type, nullptr, &size), kErrorSuccess);
  EXPECT_EQ(type, kRegSz);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(RegistryQueryValue(key, "Text", nullptr, nullptr, nullptr), kErrorSuccess);

  uint8_t buffer[8] = {9, 9, 9, 9, 9, 9, 9, 9};
  size = 3;
  type = 0;
  EXPECT_EQ(RegistryQueryValue(key, "Text", &type, buffer, &size), kErrorMoreData);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(type, kRegSz);
  EXPECT_THAT(buffer, ElementsAre(9, 9, 9, 9, 9, 9, 9, 9));

  size = sizeof buffer;
  EXPECT_EQ(RegistryQueryValue(key, "Text", nullptr, buffer, &size), kErrorSuccess);
  EXPECT_EQ(size, 4u);
  EXPECT_THAT(buffer, ElementsAre('a', 'b', 'c', 0, 9, 9, 9, 9));

  EXPECT_EQ(RegistryQueryValue(key, "Missing", &type, nullptr, &size), kErrorFileNotFound);
  EXPECT_EQ(RegistryQueryValue(key, "Text", &type, buffer, nullptr), 87u);
  EXPECT_EQ(RegistryQueryValue(nullptr, "Text", &type, nullptr, &size), kErrorInvalidHandle);
  RegistryCloseKey(key);
  RegistryCloseKey(nullptr);
}

TEST_F(RegistryFileTest, FileIsReadAfreshAtEachOpen) {
  WriteFile(std::string(kHeader5) + "[HKLM\\Software\\X]\r\n\"A\"=dword:1\r\n");
  RegistryKey first = Open("Software\\X");
  WriteFile(std::string(kHeader5) + "[HKLM\\Software\\X]\r\n\"A\"=dword:2\r\n");
  RegistryKey second = Open("Software\\X");
  EXPECT_THAT(Query(first, "A").data, ElementsAre(1, 0, 0, 0));
  EXPECT_THAT(Query(second, "A").data, ElementsAre(2, 0, 0, 0));
  RegistryCloseKey(first);
  RegistryCloseKey(second);
  std::filesystem::remove(file_);
  RegistryKey key = nullptr;
  EXPECT_EQ(RegistryOpenKey("Software\\X", 0x20019, &key), kErrorFileNotFound);
}

struct OpenRecord {
  std::string path;
  uint32_t access;
  uint32_t result;
};

void RecordOpen(void *context, const char *path, uint32_t access, uint32_t result) {
  static_cast<std::vector<OpenRecord> *>(context)->push_back({path, access, result});
}

TEST_F(RegistryFileTest, ObserverSeesPathAccessAndResultOfEveryOpen) {
  WriteFile(std::string(kHeader5) + "[HKLM\\Software\\X]\r\n");
  std::vector<OpenRecord> opens;
  SetRegistryOpenObserver(RecordOpen, &opens);
  RegistryKey key = nullptr;
  RegistryOpenKey("Software\\X", 0x20119, &key);
  RegistryCloseKey(key);
  RegistryOpenKey("Software\\Y", 0x20019, &key);
  SetRegistryOpenObserver(nullptr, nullptr);
  RegistryOpenKey("Software\\X", 0x20019, &key);
  RegistryCloseKey(key);
  ASSERT_EQ(opens.size(), 2u);
  EXPECT_EQ(opens[0].path, "Software\\X");
  EXPECT_EQ(opens[0].access, 0x20119u);
  EXPECT_EQ(opens[0].result, kErrorSuccess);
  EXPECT_EQ(opens[1].path, "Software\\Y");
  EXPECT_EQ(opens[1].access, 0x20019u);
  EXPECT_EQ(opens[1].result, kErrorFileNotFound);
}

TEST_F(RegistryFileTest, OversizedFileIsRefusedUnread) {
  {
    std::ofstream out(file_, std::ios::binary);
    out << kHeader5 << "[HKLM\\Software\\X]\r\n";
  }
  std::filesystem::resize_file(file_, (64u << 20) + 1);  // sparse: costs no disk
  RegistryKey key = nullptr;
  EXPECT_EQ(RegistryOpenKey("Software\\X", 0x20019, &key), kErrorNotEnoughMemory);
  EXPECT_EQ(key, nullptr);
  std::filesystem::resize_file(file_, 64u << 20);
  EXPECT_EQ(RegistryOpenKey("Software\\X", 0x20019, &key), kErrorSuccess);
  RegistryCloseKey(key);
}

TEST_F(RegistryFileTest, NullArgumentsOfOpen) {
  RegistryKey key = nullptr;
  EXPECT_EQ(RegistryOpenKey(nullptr, 0x20019, &key), 87u);
  EXPECT_EQ(RegistryOpenKey("Software", 0x20019, nullptr), 87u);
}

TEST(RegistryFileParserTest, PathsNormalizeCaseAndTrailingBackslashes) {
  EXPECT_EQ(NormalizeRegistryPath("Software\\Policies\\Tessarin, Inc.\\USB\\"),
            "software\\policies\\tessarin, inc.\\usb");
  EXPECT_EQ(NormalizeRegistryPath("A\\\\\\"), "a");
  EXPECT_EQ(NormalizeRegistryPath(""), "");
}

TEST(RegistryFileParserTest, DeepSectionPathStoresOnlyItsOwnKey) {
  // 200000 levels: materialising every key above would take tens of
  // gigabytes; they exist by the key below them instead.
  std::string path;
  for (int i = 0; i < 200000; ++i) path += "a\\";
  path += "leaf";
  const RegistryFile file =
      RegistryFile::Parse("REGEDIT4\n[HKLM\\" + path + "]\n\"V\"=dword:1\n[-HKLM\\b]\n");
  EXPECT_NE(file.FindKey("a"), nullptr);
  EXPECT_NE(file.FindKey("A\\a\\a"), nullptr);
  EXPECT_EQ(file.FindKey("a\\b"), nullptr);
  const RegistryFileKey *leaf = file.FindKey(path);
  ASSERT_NE(leaf, nullptr);
  EXPECT_NE(FindRegistryValue(*leaf, "v"), nullptr);
  EXPECT_EQ(file.FindKey("a")->size(), 0u);
}

TEST(RegistryFileParserTest, DeletedTreeTakesItsKeysAboveAlongUnlessOthersRemain) {
  const RegistryFile file = RegistryFile::Parse(
      "REGEDIT4\n[HKLM\\top\\one\\x]\n[HKLM\\top\\one!]\n[HKLM\\top\\two]\n"
      "[-HKLM\\top\\one]\n");
  EXPECT_EQ(file.FindKey("top\\one"), nullptr);
  EXPECT_EQ(file.FindKey("top\\one\\x"), nullptr);
  EXPECT_NE(file.FindKey("top\\one!"), nullptr);
  EXPECT_NE(file.FindKey("top"), nullptr);
}

// An open reads one key alone; it finds that key as the parse of the whole
// file does, values and all, whatever else the file holds.
TEST(RegistryFileParserTest, ReadKeyGivesTheKeyAsTheWholeParseDoes) {
  const std::string text =
      "REGEDIT4\n[HKLM\\a\\b]\n\"V\"=dword:1\n\"T\"=\"x\\\\y\"\n"
      "[HKCU\\a\\b]\n\"V\"=dword:2\n[HKLM\\a\\b\\c]\n\"W\"=hex:01,\\\n  02\n"
      "[HKLM\\other]\n\"V\"=bad\n[-HKLM\\gone]\n[HKLM\\gone\\x]\n[-HKLM\\gone]\n"
      "[HKLM\\a\\b]\n\"T\"=-\n\"U\"=hex(2):41,00\n[HKLM\\A\\B\\]\n@=\"root\"\n";
  for (const std::string &bytes : {text, std::string("\xEF\xBB\xBF") + text}) {
    const RegistryFile file = RegistryFile::Parse(bytes);
    for (std::string_view path :
         {"a\\b", "A\\B\\", "a", "a\\b\\c", "other", "gone", "gone\\x", "", "a\\b\\d"}) {
      const RegistryFileKey *whole = file.FindKey(path);
      const std::optional<RegistryFileKey> alone = RegistryFile::ReadKey(bytes, path);
      ASSERT_EQ(alone.has_value(), whole != nullptr) << path;
      if (whole == nullptr) continue;
      ASSERT_EQ(alone->size(), whole->size()) << path;
      for (const auto &[name, value] : *whole) {
        const RegistryFileValue *found = FindRegistryValue(*alone, name);
        ASSERT_NE(found, nullptr) << path << " " << name;
        EXPECT_EQ(found->type, value.type) << path << " " << name;
        EXPECT_EQ(found->data, value.data) << path << " " << name;
      }
    }
  }
  const RegistryFile file = RegistryFile::Parse(text);
  ASSERT_NE(file.FindKey("a\\b"), nullptr);
  EXPECT_EQ(file.FindKey("a\\b")->size(), 3u);  // V, U and the default value
}

TEST(RegistryFileParserTest, EmptyInputHasNoHeaderAndNoKeys) {
  const RegistryFile file = RegistryFile::Parse("");
  EXPECT_FALSE(file.HasHeader());
  EXPECT_EQ(file.FindKey(""), nullptr);
}

TEST(RegistryFileParserTest, RootSectionIsTheEmptyPath) {
  const RegistryFile file = RegistryFile::Parse("REGEDIT4\n[HKEY_LOCAL_MACHINE]\n@=dword:1\n");
  const RegistryFileKey *root = file.FindKey("");
  ASSERT_NE(root, nullptr);
  const RegistryFileValue *value = FindRegistryValue(*root, "");
  ASSERT_NE(value, nullptr);
  EXPECT_EQ(value->type, kRegDword);
  EXPECT_THAT(value->data, ElementsAreArray({1, 0, 0, 0}));
}

}  // namespace
}  // namespace pelarix::platform
