#pragma once
// What may stand on the console, as docs/console.md has it.

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kelt::tests::gate {

/// The texts and exit statuses of a document like docs/console.md: table rows that begin with a text in double quotes,
/// in which "…" stands for anything, or with a number.
class ConsoleTexts {
 public:
  explicit ConsoleTexts(const std::string& document);

  [[nodiscard]] bool bStatus(int status) const { return m_statuses.count(status) != 0; }

  /// The first line of `output` that no text of the document allows; empty where there is none. A line may be several
  /// texts without an ellipsis in a row: steps, and how they ended.
  [[nodiscard]] std::string firstUnknownLine(std::string_view output) const;

  [[nodiscard]] std::size_t size() const { return m_texts.size(); }

 private:
  [[nodiscard]] bool bKnown(std::string_view line) const;
  [[nodiscard]] bool bSeveral(std::string_view line) const;

  std::set<int> m_statuses;
  std::vector<std::vector<std::string>> m_texts;  // the parts between ellipses
};

}  // namespace kelt::tests::gate
