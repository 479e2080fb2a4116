#pragma once

#include <cstddef>
#include <string_view>

namespace window {

/// A line of UTF-8 text that leaves no trace: memory of its own, which never moves, is kept out of swap where
/// the system allows it, out of core dumps and out of children, and is overwritten when it is cleared and
/// when it goes.
class SecretText {
 public:
  /// Bytes. As much as sudo reads, without the line break.
  static constexpr std::size_t kCapacity = 1000;

  /// Throws std::bad_alloc where there is no memory.
  SecretText();
  ~SecretText();
  SecretText(const SecretText&) = delete;
  SecretText& operator=(const SecretText&) = delete;

  /// Takes the whole text or, where it has no room for it or there is a line break or a zero in it, nothing.
  bool append(std::string_view text);
  /// The same of UTF-16, without a copy of it anywhere. Halves of characters are no part of a password
  /// either.
  bool append(std::u16string_view text);
  /// Takes the last character away, if there is one.
  void removeLast();
  void clear();

  [[nodiscard]] std::string_view bytes() const { return {memory_, size_}; }
  /// Characters, not bytes.
  [[nodiscard]] std::size_t length() const;
  [[nodiscard]] bool isLocked() const { return isLocked_; }

  /// Writes the text and a line break to a descriptor; answers whether all of it was taken.
  [[nodiscard]] bool writeLine(int descriptor);

 private:
  bool appendLetter(char32_t letter);

  char* memory_;
  std::size_t size_ = 0;
  bool isLocked_ = false;
};

/// From here on memory that is given back is overwritten (glibc.malloc.perturb of GLIBC_TUNABLES), whoever
/// had it: the toolkit, or a library that it stands on. Starts the program anew to that end, with the same
/// arguments; goes on where that cannot be done, and where it has been.
void overwriteFreedMemory(char** arguments);

/// Neither this process's memory nor what is left of it when it crashes can be looked at by anybody but root.
void refuseToBeLookedAt();

}  // namespace window
