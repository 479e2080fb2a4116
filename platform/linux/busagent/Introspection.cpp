#include "platform/linux/busagent/Introspection.h"

#include <expat.h>

#include <memory>
#include <string_view>
#include <vector>

namespace busagent {

namespace {

constexpr std::size_t kLongestDocument = 4U << 20;

/// Follows the elements down to node / interface / method.
struct Search {
  std::string_view interfaceName;
  std::string_view method;
  std::vector<std::string> path = {};  // the open elements, outermost first
  bool isFound = false;
};

std::string_view nameAttribute(const XML_Char** attributes) {
  for (; *attributes != nullptr; attributes += 2) {
    if (std::string_view(attributes[0]) == "name") return attributes[1];
  }
  return {};
}

void XMLCALL beginElement(void* data, const XML_Char* name, const XML_Char** attributes) {
  auto& search = *static_cast<Search*>(data);
  const std::string_view element = name;
  const std::string_view value = nameAttribute(attributes);
  const bool isInInterface =
      search.path.size() == 2 && search.path[0] == "node" && search.path[1] == "interface of interest";
  if (isInInterface && element == "method" && value == search.method) search.isFound = true;
  const bool isOfInterest = element == "interface" && value == search.interfaceName;
  search.path.emplace_back(isOfInterest ? "interface of interest" : element);
}

void XMLCALL endElement(void* data, const XML_Char*) {
  static_cast<Search*>(data)->path.pop_back();
}

}  // namespace

bool declaresMethod(const std::string& document, const std::string& interfaceName,
                    const std::string& method) {
  if (document.size() > kLongestDocument) return false;
  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(XML_ParserCreate(nullptr),
                                                                            &XML_ParserFree);
  Search search{interfaceName, method};
  XML_SetUserData(parser.get(), &search);
  XML_SetElementHandler(parser.get(), &beginElement, &endElement);
  const auto status = XML_Parse(parser.get(), document.data(), static_cast<int>(document.size()), XML_TRUE);
  return status == XML_STATUS_OK && search.isFound;
}

}  // namespace busagent
