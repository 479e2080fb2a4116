#pragma once

#include <string>
#include <vector>

namespace workstation {

/// The words as execve(2) takes them: pointers into them, and a null pointer at the end. They are made before
/// a fork, so that the child allocates nothing; the words must outlive them.
inline std::vector<char*> argumentVector(std::vector<std::string>& words) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (auto& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace workstation
