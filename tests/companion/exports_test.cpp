// What the shared library shows to the dynamic linker, against what the header declares.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <sstream>
#include <string>

namespace {

std::set<std::string> Declared() {
  std::ifstream file(KORVANE_SOURCE_DIR "/include/Tarsel_MailConversions.h");
  const std::string header{std::istreambuf_iterator<char>(file), {}};
  const std::string mark = "MP_CALL ";
  std::set<std::string> names;
  for (size_t at = header.find(mark); at != header.npos; at = header.find(mark, at)) {
    at += mark.size();
    // Behind the other places where the word stands comes no name with a parenthesis.
    const size_t end = header.find_first_of("( \n", at);
    if (end != header.npos && header[end] == '(') names.insert(header.substr(at, end - at));
  }
  return names;
}

std::set<std::string> Exported() {
  const std::unique_ptr<FILE, int (*)(FILE*)> nm(
      popen("nm -D --defined-only '" COMPANION_LIBRARY "'", "r"), pclose);
  std::set<std::string> names;
  std::array<char, 1000> line;
  while (nm && std::fgets(line.data(), line.size(), nm.get()) != nullptr) {
    std::istringstream words(line.data());
    std::string address, kind, name;
    words >> address >> kind >> name;
    names.insert(name.substr(0, name.find('@')));
  }
  return names;
}

TEST(CompanionLibrary, ExportsExactlyTheFunctionsThatItsHeaderDeclares) {
  EXPECT_EQ(Exported(), Declared());
}

TEST(CompanionLibrary, HasTenFunctions) { EXPECT_EQ(Declared().size(), 10u); }

}  // namespace
