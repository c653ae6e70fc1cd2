#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::detail {

/// MIME types by filename extension, as the `mime/globs2` files of the shared MIME-info database
/// tell them; patterns other than "*.extension" do not count.
class MIMEDatabase {
 public:
  /// Reads what there is to read below these folders, the most important one first; a folder
  /// without a database adds nothing.
  explicit MIMEDatabase(const std::vector<std::string>& dataDirectories);

  /// Of several types the one with the highest weight, then the one from the more important
  /// folder, then the common one, then the first of the alphabet; of none the common one.
  std::optional<std::string> type(std::string_view extension) const;

 private:
  struct Candidate {
    int weight;
    std::string type;
    std::size_t directory;
    bool isCommon;
  };
  using Candidates = std::map<std::string, Candidate, std::less<>>;

  void add(std::string_view extension, bool isCaseSensitive, Candidate candidate);

  Candidates exact_;    // extensions whose case counts
  Candidates lowered_;  // all others
};

/// The type in the table of common types; `extension` in lower case.
std::optional<std::string_view> commonMIMEType(std::string_view extension);

/// The folders that may hold a database, by the values of XDG_DATA_HOME, HOME and XDG_DATA_DIRS,
/// the most important one first. As the XDG rules have it, relative paths do not count.
std::vector<std::string> dataDirectories(std::string_view xdgDataHome, std::string_view home,
                                         std::string_view xdgDataDirs);

}  // namespace tarn::detail
