#include "platform/macos/PropertyListNesting.h"

#include <algorithm>
#include <cerrno>
#include <string>

#include "platform/foundation/BinaryPropertyList.h"

namespace platform {
namespace {

constexpr std::string_view kBinaryMagic = "bplist00";

/// Walks over the mark-up of an XML property list, without a tree and without a stack.
class XmlWalk {
 public:
  XmlWalk(std::string_view text, std::size_t mostValues) : text_(text), mostValues_(mostValues) {}

  /// Answers 0 or an errno value.
  int fault() {
    if (text_.find('\0') != std::string_view::npos) return EINVAL;
    while (skipText()) {
      if (const int fault = faultOfMarkUp(); fault != 0) return fault;
    }
    return depth_ == 0 ? 0 : EINVAL;
  }

 private:
  /// Moves to the next mark-up; answers whether there is one.
  bool skipText() {
    text_.remove_prefix(std::min(text_.find('<'), text_.size()));
    return !text_.empty();
  }

  int faultOfMarkUp() {
    if (text_.starts_with("<!--")) return skip("<!--", "-->") ? 0 : EINVAL;
    if (text_.starts_with("<![CDATA[")) return skip("<![CDATA[", "]]>") ? 0 : EINVAL;
    if (text_.starts_with("<?")) return skip("<", "?>") && isPlain(skipped_) ? 0 : EINVAL;
    if (!skip("<", ">") || !isPlain(skipped_)) return EINVAL;
    return skipped_.starts_with('!') ? faultOfDeclaration() : faultOfTag();
  }

  /// What lies between goes to skipped_; answers whether there is an end to it.
  bool skip(std::string_view opening, std::string_view closing) {
    const std::size_t end = text_.find(closing, opening.size());
    if (end == std::string_view::npos) return false;
    skipped_ = text_.substr(opening.size(), end - opening.size());
    text_.remove_prefix(end + closing.size());
    return true;
  }

  /// It ends where it does to a parser that reads over what is quoted, and to one that does not.
  static bool isPlain(std::string_view markUp) {
    const auto isEven = [markUp](char mark) {
      return std::count(markUp.begin(), markUp.end(), mark) % 2 == 0;
    };
    return markUp.find('<') == std::string_view::npos && isEven('"') && isEven('\'');
  }

  [[nodiscard]] int faultOfDeclaration() const {
    return skipped_.find('[') == std::string_view::npos ? 0 : EINVAL;
  }

  int faultOfTag() {
    depth_ += depthChange(skipped_);
    if (depth_ < 0 || depth_ > static_cast<int>(kGreatestNesting)) return EINVAL;
    if (!skipped_.starts_with('/') && ++values_ > mostValues_) return EFBIG;
    return 0;
  }

  /// How much a tag, without its angle brackets, changes the depth.
  static int depthChange(std::string_view tag) {
    const bool isClosing = tag.starts_with('/');
    if (isClosing) tag.remove_prefix(1);
    const std::string_view name = tag.substr(0, tag.find_first_of(" \t\r\n/>"));
    if (name != "array" && name != "dict") return 0;
    if (tag.ends_with('/')) return 0;
    return isClosing ? -1 : 1;
  }

  std::string_view text_;  ///< what is left of it
  std::string_view skipped_;
  std::size_t mostValues_;
  std::size_t values_ = 0;
  int depth_ = 0;
};

}  // namespace

int nestingFault(std::string_view bytes, std::size_t mostValues) {
  if (!bytes.starts_with(kBinaryMagic)) return XmlWalk(bytes, mostValues).fault();
  const auto list = foundation::BinaryPropertyList::open(std::string(bytes), mostValues);
  return list ? 0 : list.error().code;
}

}  // namespace platform
