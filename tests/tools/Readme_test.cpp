// The README's code quotes the examples, which are built and tested: every line of the code block
// in a section that names examples/<name>/main.cpp is a line of that file, so what the README
// shows compiles and runs.
#ifdef ZORVA_SOURCE_DIR

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace zorva::test {
namespace {

std::string readFile(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string trimmed(const std::string& line) {
  const auto first = line.find_first_not_of(" \t");
  return first == std::string::npos ? ""
                                    : line.substr(first, line.find_last_not_of(" \t") + 1 - first);
}

TEST(Readme, QuotesTheExamplesLineForLine) {
  const std::string readme = readFile(ZORVA_SOURCE_DIR "/README.md");
  const std::regex example("examples/[a-z-]+/main\\.cpp");
  int examples = 0;
  for (std::size_t start = 0; start < readme.size();) {
    const std::size_t end = std::min(readme.find("\n## ", start + 1), readme.size());
    const std::string section = readme.substr(start, end - start);
    start = end;
    std::smatch named;
    const std::size_t code = section.find("```cpp\n");
    if (!std::regex_search(section, named, example) || code == std::string::npos) continue;
    ++examples;
    std::set<std::string> lines;
    std::istringstream source(readFile(ZORVA_SOURCE_DIR "/" + named.str()));
    for (std::string line; std::getline(source, line);) lines.insert(trimmed(line));
    ASSERT_GT(lines.size(), 1u) << named.str();
    std::istringstream quoted(section.substr(code + 7, section.find("```", code + 7) - code - 7));
    for (std::string line; std::getline(quoted, line);) {
      EXPECT_TRUE(lines.count(trimmed(line))) << named.str() << " has no line \"" << line << "\"";
    }
  }
  EXPECT_GE(examples, 2);
}

}  // namespace
}  // namespace zorva::test

#endif  // ZORVA_SOURCE_DIR
