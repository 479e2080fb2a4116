#include "helpers/TrashName.h"

#include "platform/foundation/Paths.h"

namespace helpers {
namespace {

constexpr std::size_t kLongestExtension = 32;  // with a longer one the point is just a part of the name

std::string cut(const std::string& stem, std::size_t mostBytes) {
  if (stem.size() <= mostBytes) return stem;
  std::size_t length = mostBytes;
  for (int back = 0; back < 3 && length > 1; ++back) {
    if ((static_cast<unsigned char>(stem[length]) & 0xC0U) != 0x80U) break;
    --length;
  }
  return stem.substr(0, length);
}

std::string fitted(const std::string& stem, const std::string& tail, std::size_t mostBytes) {
  return cut(stem, mostBytes > tail.size() ? mostBytes - tail.size() : 1) + tail;
}

}  // namespace

TrashName TrashName::ofItem(const std::string& name, const foundation::Date& now) {
  TrashName names;
  const std::string extension = foundation::pathExtension(name);
  const bool hasExtension = !extension.empty() && extension.size() <= kLongestExtension;
  names.name_ = name;
  names.extension_ = hasExtension ? "." + extension : "";
  names.stem_ = name.substr(0, name.size() - names.extension_.size());
  names.stamp_ = "_" + now.formattedLocally("%Y%m%d%H%M%S");
  names.separator_ = "_";
  return names;
}

TrashName TrashName::ofContents(const std::string& folderName, const foundation::Date& now) {
  TrashName names;
  names.stem_ = folderName;
  names.stamp_ = " " + now.formattedLocally("%Y-%m-%d %H.%M.%S");
  names.separator_ = " ";
  return names;
}

std::string TrashName::candidate(unsigned attempt, std::size_t mostBytes) const {
  if (!name_.empty() && attempt == 0) return fitted(stem_, extension_, mostBytes);
  const unsigned number = name_.empty() ? attempt + 1 : attempt;
  const std::string count = number > 1 ? separator_ + std::to_string(number) : "";
  return fitted(stem_, stamp_ + count + extension_, mostBytes);
}

}  // namespace helpers
