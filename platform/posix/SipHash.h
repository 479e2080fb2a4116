#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// SipHash-2-4 with 64 bits (Aumasson and Bernstein, "SipHash: a fast short-input PRF", 2012): a digest that
/// nobody can foretell, nor find another text for, who does not know its key. It tells whether something
/// comes back as it was given away, where the digests are kept and not shown.
namespace platform {

using SipHashKey = std::array<std::uint64_t, 2>;

/// Of one text: as many words as there are, then the bytes.
class SipHash {
 public:
  explicit constexpr SipHash(const SipHashKey& key)
      : v0_(key[0] ^ 0x736f6d6570736575U),
        v1_(key[1] ^ 0x646f72616e646f6dU),
        v2_(key[0] ^ 0x6c7967656e657261U),
        v3_(key[1] ^ 0x7465646279746573U) {}

  /// Eight bytes of the text, the least significant first.
  constexpr void add(std::uint64_t word) {
    length_ += kWord;
    compress(word);
  }
  /// The digest of the whole text, of which these are the last bytes. It is not used afterwards.
  [[nodiscard]] constexpr std::uint64_t end(std::string_view bytes) {
    length_ += bytes.size();
    for (; bytes.size() >= kWord; bytes.remove_prefix(kWord)) compress(wordOf(bytes.substr(0, kWord)));
    compress((length_ << 56U) | wordOf(bytes));
    v2_ ^= 0xffU;
    for (int i = 0; i < 4; ++i) round();
    return v0_ ^ v1_ ^ v2_ ^ v3_;
  }

 private:
  static constexpr std::size_t kWord = 8;

  static constexpr std::uint64_t wordOf(std::string_view bytes) {
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      word |= std::uint64_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
    }
    return word;
  }

  constexpr void compress(std::uint64_t word) {
    v3_ ^= word;
    round();
    round();
    v0_ ^= word;
  }

  constexpr void round() {
    v0_ += v1_;
    v2_ += v3_;
    v1_ = std::rotl(v1_, 13) ^ v0_;
    v3_ = std::rotl(v3_, 16) ^ v2_;
    v0_ = std::rotl(v0_, 32);
    v2_ += v1_;
    v0_ += v3_;
    v1_ = std::rotl(v1_, 17) ^ v2_;
    v3_ = std::rotl(v3_, 21) ^ v0_;
    v2_ = std::rotl(v2_, 32);
  }

  std::uint64_t v0_;
  std::uint64_t v1_;
  std::uint64_t v2_;
  std::uint64_t v3_;
  std::uint64_t length_ = 0;
};

}  // namespace platform
