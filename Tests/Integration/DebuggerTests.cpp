#include <Support/System.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace tarn::test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;

/// Stops the program once it has logged, and evaluates what its log says to evaluate.
class DebuggerTests : public testing::Test {
 protected:
  DebuggerTests() {
    // What stands between the brackets, as a person would copy it.
    writeFile(file("calls.sh"), "grep -o 'TarnService[.][^]]*' " + log() + " | sed 's/^/print /'" +
                                    " > " + file("calls.gdb"));
  }

  /// What gdb prints as values: that of a call of the program's own first. Empty where calls are
  /// out of reach.
  std::vector<std::string> valuesNatively() {
    return values(gdb("-ex 'run 2>" + log() + "'"), "natively");
  }
  /// The same by way of valgrind, which needs no leave to trace. It can't read what Clang tells
  /// debuggers, and needs none of that.
  std::vector<std::string> valuesUnderValgrind() {
    const std::string pipes = " --vgdb-prefix=" + file("vgdb");
    const std::string program = file("program");
    return values(
        "strip -g -o " + program +
            " " TARN_DEBUGGED
            " && timeout 90 valgrind -q --tool=none"
            " --vgdb-error=0" +
            pipes + " --log-file=" + file("valgrind.log") + " " + program + " 2>" + log() + " & " +
            gdb("-ex 'target remote | vgdb --wait=30" + pipes + "' -ex continue") + "; wait",
        "under valgrind");
  }
  const std::string& transcript() const { return transcript_; }

 private:
  std::string file(const std::string& name) const { return place_.file(name); }
  std::string log() const { return file("log"); }

  std::string gdb(const std::string& start) const {
    return "timeout 90 gdb -q -nx -batch -ex 'set confirm off' -ex 'set print elements 0' "
           "-ex 'set width 0' -ex 'break logged' " +
           start + " -ex 'print answer()' -ex 'shell sh " + file("calls.sh") + "' -ex 'source " +
           file("calls.gdb") + "' -ex kill " TARN_DEBUGGED;
  }

  std::vector<std::string> values(const std::string& command, const std::string& way) {
    std::istringstream output(outputOf("{ " + command + "; } 2>&1; true"));
    std::vector<std::string> found;
    transcript_ += "\n" + way + ":\n";
    for (std::string line; std::getline(output, line);) {
      transcript_ += line + "\n";
      if (line.starts_with("$")) found.push_back(line.substr(line.find(" = ") + 3));
    }
    return found;
  }

  const TemporaryDirectory place_;
  std::string transcript_;
};

TEST_F(DebuggerTests, ACallCopiedFromTheLogPrintsTheBody) {
  auto values = valuesNatively();
  // Containers and some virtual machines let nobody write to the registers of a process.
  if (values.empty()) values = valuesUnderValgrind();
  if (values.empty()) GTEST_SKIP() << "No debugger can make calls here:" << transcript();

  std::string text;
  for (int line = 1; line <= 20; ++line) text += "line " + std::to_string(line) + ", ";
  EXPECT_THAT(values, ElementsAre("42", EndsWith(" \"" + text + "\""), EndsWith(" \"ff 00 1f \"")))
      << transcript();
}

}  // namespace
}  // namespace tarn::test
