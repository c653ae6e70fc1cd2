#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Includes/IncludeCheck.hpp>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace tarn {
namespace {

using ::testing::ElementsAre;
using ::testing::Gt;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

struct Row {
  std::string path;
  std::string includes;
  std::string fault;  // a regular expression; empty: none
};

constexpr const char* part = ".*may not include this part.*";
constexpr const char* foreign = ".*public header and may not include this library.*";
constexpr const char* home = ".*may not include this library: its home is .*";
constexpr const char* optional = ".*users have its library or not.*";
constexpr const char* form = ".*includes are written <Module/Folder/Unit.hpp>.*";

TEST(IncludeCheck, HoldsEachIncludeAgainstTheTable) {
  const std::vector<Row> rows = {
      // Modules.
      {"Platform/Types/URL.cpp", "<Platform/Dispatch/DispatchQueue.hpp>", ""},
      {"Platform/Types/URL.cpp", "<TarnLogger/Logger.hpp>", part},
      {"Platform/Types/URL.cpp", "<TarnService/Settings.hpp>", part},
      {"TarnLogger/Logger.cpp", "<Platform/Types/URL.hpp>", ""},
      {"TarnLogger/Logger.cpp", "<Tambour/Future.hpp>", part},
      {"Tambour/Future.hpp", "<TarnLogger/Logger.hpp>", part},
      {"Tambour/Future.hpp", "<TarnService/TarnService.hpp>", part},
      // Folders of TarnService.
      {"TarnService/Settings.hpp", "<TarnLogger/Logger.hpp>", ""},
      {"TarnService/Settings.hpp", "<TarnService/Responses/HTTPStatus.hpp>", part},
      {"TarnService/Diagnostics/Logger.hpp", "<TarnService/Responses/HTTPStatus.hpp>", part},
      {"TarnService/Responses/HTTPStatus.hpp", "<TarnService/Diagnostics/Logger.hpp>", ""},
      {"TarnService/Responses/HTTPStatus.hpp", "<TarnService/Transport/TaskManager.hpp>", part},
      {"TarnService/Transport/TaskManager.hpp", "<TarnService/Responses/HTTPStatus.hpp>", ""},
      {"TarnService/Transport/TaskManager.hpp", "<TarnService/RequestModel/UserAgent.hpp>", part},
      {"TarnService/RequestModel/UserAgent.hpp", "<TarnService/PayloadEncoding/GZip.hpp>", part},
      {"TarnService/RequestModel/UserAgent.hpp", "<TarnService/Settings.hpp>", ""},
      {"TarnService/PayloadEncoding/GZip.hpp", "<TarnService/RequestModel/UserAgent.hpp>", ""},
      {"TarnService/PayloadEncoding/GZip.hpp", "<TarnService/Diagnostics/Curl.hpp>", part},
      {"TarnService/PayloadEncoding/GZip.hpp", "<TarnService/Diagnostics/Logger.hpp>", ""},
      {"TarnService/Diagnostics/Curl.hpp", "<TarnService/Sending/HTTPPolling.hpp>", part},
      {"TarnService/Sending/HTTPPolling.hpp", "<TarnService/Diagnostics/Curl.hpp>", ""},
      {"TarnService/Sending/HTTPPolling.hpp", "<TarnService/TarnService.hpp>", part},
      {"TarnService/TarnService.hpp", "<TarnService/Sending/HTTPPolling.hpp>", ""},
      {"TarnService/Elsewhere/Unit.hpp", "<string>", ".*stands in no part.*"},
      // Private headers.
      {"Platform/URLLoading/URLSession.hpp", "<Platform/URLLoading/Curl/Easy.hpp>",
       ".*may not include a private one.*"},
      {"Platform/Types/URL.hpp", "<Platform/Types/Detail/Rep.hpp>",
       ".*may not include a private one.*"},
      {"Platform/URLLoading/URLSession.cpp", "<Platform/URLLoading/Curl/Easy.hpp>", ""},
      {"Platform/URLLoading/Curl/Multi.hpp", "<Platform/URLLoading/Curl/Easy.hpp>", ""},
      // Libraries of others.
      {"Platform/URLLoading/Curl/Easy.hpp", "<curl/curl.h>", ""},
      {"Platform/URLLoading/URLSession.cpp", "<curl/curl.h>", home},
      {"Platform/Trust/Certificate.cpp", "<openssl/x509.h>", ""},
      {"Platform/Trust/Certificate.hpp", "<openssl/x509.h>", foreign},
      {"Platform/Trust/Detail/Handles.hpp", "<openssl/x509.h>", ""},
      {"Platform/URLLoading/Curl/Easy.cpp", "<openssl/ssl.h>", home},
      {"Platform/JSON/JSONDecoder.cpp", "<simdjson.h>", ""},
      {"Platform/JSON/JSONDecoder.hpp", "<simdjson.h>", foreign},
      {"Tambour/JSONDecodable.cpp", "<simdjson.h>", home},
      {"TarnLogger/Logger.cpp", "<spdlog/spdlog.h>", ""},
      {"TarnLogger/Logger.hpp", "<spdlog/spdlog.h>", foreign},
      {"TarnService/Settings.cpp", "<spdlog/spdlog.h>", home},
      {"TarnService/PayloadEncoding/GZip.cpp", "<zlib.h>", ""},
      {"TarnService/PayloadEncoding/GZip.hpp", "<zlib.h>", foreign},
      {"Platform/Types/URL.cpp", "<boost/url.hpp>", ""},
      {"Platform/Types/URL.hpp", "<boost/url.hpp>", foreign},
      {"Platform/Types/URL.hpp", "<boost/pfr.hpp>", foreign},
      {"Platform/JSON/Reflection.hpp", "<boost/pfr.hpp>", ""},
      {"Platform/JSON/Reflection.hpp", "<boost/json.hpp>", foreign},
      // A header of its own for each library that is optional.
      {"Platform/JSON/NlohmannCoding.hpp", "<nlohmann/json.hpp>", ""},
      {"Platform/JSON/NlohmannCoding.hpp", "<boost/json.hpp>", foreign},
      {"Platform/JSON/JSONCoding.hpp", "<nlohmann/json.hpp>", home},
      {"Platform/JSON/JSONDecoder.cpp", "<nlohmann/json.hpp>", home},
      {"TarnService/TarnService.hpp", "<nlohmann/json_fwd.hpp>", home},
      {"TarnService/TarnService.hpp", "<Platform/JSON/NlohmannCoding.hpp>", optional},
      {"Platform/JSON/JSONCoding.hpp", "<Platform/JSON/NlohmannCoding.hpp>", optional},
      {"Platform/JSON/JSONDecoder.cpp", "<Platform/JSON/NlohmannCoding.hpp>", optional},
      // The way an include is written.
      {"Platform/Types/URL.cpp", "\"URL.hpp\"", form},
      {"Platform/Types/URL.cpp", "\"Platform/Types/URL.hpp\"", form},
      {"Platform/Types/URL.cpp", "<Platform/Types/../Dispatch/Mutex.hpp>", form},
  };
  for (const auto& [path, include, fault] : rows) {
    SCOPED_TRACE(path + " includes " + include);
    const auto faults =
        includeFaults("Sources/" + path, "#pragma once\n#include " + include + "\n");
    if (fault.empty())
      EXPECT_THAT(faults, IsEmpty());
    else
      EXPECT_THAT(faults, ElementsAre(MatchesRegex(fault)));
  }
}

TEST(IncludeCheck, ReadsAnIncludeHoweverItIsSpaced) {
  for (const std::string include :
       {"#include <curl/curl.h>", "  #  include\t<curl/curl.h>  // comment",
        "#include<curl/curl.h>", "int x;\n\n#include <curl/curl.h>"}) {
    SCOPED_TRACE(include);
    EXPECT_THAT(includeFaults("Sources/Tambour/Unit.cpp", include),
                ElementsAre(MatchesRegex(home)));
  }
}

TEST(IncludeCheck, DoesNotTakeOtherLinesForIncludes) {
  for (const std::string line : {"// #include <curl/curl.h>", "const char* x = \"<curl/curl.h>\";",
                                 "#define CURL <curl/curl.h>", "#include", "#"}) {
    SCOPED_TRACE(line);
    EXPECT_THAT(includeFaults("Sources/Tambour/Unit.cpp", line), IsEmpty());
  }
}

TEST(IncludeCheck, LeavesTheIncludesOfTestsFree) {
  EXPECT_THAT(includeFaults("Tests/Platform/URLTests.cpp", "#include <openssl/ssl.h>\n"),
              IsEmpty());
}

TEST(IncludeCheck, BoundsTheLengthOfFiles) {
  struct {
    std::string path;
    std::size_t lines;
    bool tooLong;
  } const rows[] = {
      {"Sources/Platform/Types/URL.hpp", 299, false},
      {"Sources/Platform/Types/URL.hpp", 300, true},
      {"Sources/Platform/URLLoading/Curl/Easy.hpp", 799, false},
      {"Sources/Platform/URLLoading/Curl/Easy.hpp", 800, true},
      {"Sources/Platform/Types/URL.cpp", 799, false},
      {"Sources/Platform/Types/URL.cpp", 800, true},
      {"Tests/Support/Script.hpp", 799, false},
      {"Tests/Platform/URLTests.cpp", 800, true},
  };
  for (const auto& [path, lines, tooLong] : rows) {
    SCOPED_TRACE(path + ", lines: " + std::to_string(lines));
    const auto faults = includeFaults(path, std::string(lines, '\n'));
    if (tooLong)
      EXPECT_THAT(faults, ElementsAre(MatchesRegex(".* lines; .* are allowed")));
    else
      EXPECT_THAT(faults, IsEmpty());
  }
}

TEST(IncludeCheck, FindsNoFaultInThisProject) {
  namespace fs = std::filesystem;
  const fs::path project = PROJECT_FOLDER;
  std::size_t checked = 0;
  for (const auto* folder : {"Sources", "Tests", "Examples", "Benchmarks"}) {
    for (const auto& entry : fs::recursive_directory_iterator(project / folder)) {
      if (entry.path().extension() != ".hpp" && entry.path().extension() != ".cpp") continue;
      std::ifstream file(entry.path());
      const std::string text{std::istreambuf_iterator<char>(file), {}};
      EXPECT_THAT(text, ::testing::Not(IsEmpty())) << entry.path();
      EXPECT_THAT(includeFaults(entry.path().lexically_relative(project).string(), text),
                  IsEmpty());
      ++checked;
    }
  }
  EXPECT_THAT(checked, Gt(20U));
}

}  // namespace
}  // namespace tarn
