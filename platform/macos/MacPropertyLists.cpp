#include "platform/macos/MacPropertyLists.h"

#include <cerrno>

#include "platform/macos/CoreFoundationValues.h"
#include "platform/macos/PropertyListNesting.h"

namespace platform {

using foundation::PropertyList;
using foundation::Result;
using foundation::systemError;

Result<PropertyList> MacPropertyLists::parse(std::string_view bytes, const PropertyListLimits& limits) {
  if (bytes.size() > limits.bytes) return systemError(EFBIG, "");
  if (const int fault = nestingFault(bytes, limits.values); fault != 0) return systemError(fault, "");
  const CoreFoundationReference<CFDataRef> data(CFDataCreate(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size())));
  if (!data) return systemError(ENOMEM, "");
  const CoreFoundationValue root(CFPropertyListCreateWithData(kCFAllocatorDefault, data.get(),
                                                              kCFPropertyListImmutable, nullptr, nullptr));
  auto value = propertyListOf(root.get());
  if (!value) return systemError(EINVAL, "");
  return std::move(*value);
}

Result<std::string> MacPropertyLists::serialize(const PropertyList& value, PropertyListFormat format) {
  const CoreFoundationValue root = coreFoundationValue(value);
  if (!root) return systemError(EINVAL, "");
  const CFPropertyListFormat form =
      format == PropertyListFormat::xml ? kCFPropertyListXMLFormat_v1_0 : kCFPropertyListBinaryFormat_v1_0;
  const CoreFoundationReference<CFDataRef> data(
      CFPropertyListCreateData(kCFAllocatorDefault, root.get(), form, 0, nullptr));
  if (!data) return systemError(EINVAL, "");
  return std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data.get())),
                     static_cast<std::size_t>(CFDataGetLength(data.get())));
}

}  // namespace platform
