// The shared library's dynamic symbol table holds the 29 Pelarix_ functions
// (exported_names.txt, which the Windows build's export check reads too) and
// nothing else.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

namespace {

// Defined dynamic symbols of the library, by name.
std::set<std::string> DefinedDynamicSymbols(const std::string &library, int *exitStatus) {
  const std::string command = "nm -D --defined-only '" + library + "'";
  std::set<std::string> names;
  FILE *pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return names;
  char line[512];
  while (std::fgets(line, sizeof line, pipe) != nullptr) {
    std::istringstream fields(line);
    std::string address, type, name;
    fields >> address >> type >> name;
    if (name.empty()) name = type;  // an undefined-address line has two fields
    if (!name.empty()) names.insert(name);
  }
  *exitStatus = pclose(pipe);
  return names;
}

TEST(ExportsAbiTest, ExactlyThePelarixFunctionsAreExported) {
  int exitStatus = -1;
  const std::set<std::string> symbols = DefinedDynamicSymbols(PELARIX_SHARED_LIBRARY, &exitStatus);
  ASSERT_EQ(exitStatus, 0) << "nm failed on " << PELARIX_SHARED_LIBRARY;
  std::set<std::string> expected;
  std::ifstream names(PELARIX_EXPORTED_NAMES);
  for (std::string name; std::getline(names, name);) {
    if (!name.empty()) expected.insert(name);
  }
  ASSERT_EQ(expected.size(), 29u);
  EXPECT_EQ(symbols, expected);
}

}  // namespace
