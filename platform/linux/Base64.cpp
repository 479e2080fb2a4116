#include "platform/linux/Base64.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace platform {
namespace {

constexpr std::string_view kCharacters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNone = 0xFF;

constexpr std::array<std::uint8_t, 256> values() {
  std::array<std::uint8_t, 256> values{};
  values.fill(kNone);
  for (std::size_t at = 0; at < kCharacters.size(); ++at) {
    values[static_cast<unsigned char>(kCharacters[at])] = static_cast<std::uint8_t>(at);
  }
  return values;
}

constexpr auto kValues = values();

bool isWhiteSpace(char letter) {
  return letter == ' ' || letter == '\t' || letter == '\n' || letter == '\r';
}

/// Up to three bytes as one number, the first the highest.
std::uint32_t groupAt(std::string_view bytes, std::size_t at) {
  std::uint32_t group = 0;
  for (std::size_t next = at; next < at + 3; ++next) {
    group = group << 8U | (next < bytes.size() ? static_cast<unsigned char>(bytes[next]) : 0U);
  }
  return group;
}

}  // namespace

std::string base64(std::string_view bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const std::uint32_t group = groupAt(bytes, at);
    const std::size_t characters = 1 + std::min<std::size_t>(3, bytes.size() - at);
    for (unsigned place = 0; place < 4; ++place) {
      text += place < characters ? kCharacters[group >> (18 - 6 * place) & 0x3FU] : '=';
    }
  }
  return text;
}

std::optional<std::string> fromBase64(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3 + 3);
  std::uint32_t group = 0;
  std::size_t characters = 0;
  std::size_t filling = 0;
  for (const char letter : text) {
    if (isWhiteSpace(letter)) continue;
    if (letter == '=') {
      ++filling;
      continue;
    }
    const std::uint8_t value = kValues[static_cast<unsigned char>(letter)];
    if (value == kNone || filling > 0) return std::nullopt;
    group = group << 6U | value;
    if (++characters % 4 != 0) continue;
    for (unsigned shift = 24; shift > 0; shift -= 8) bytes += static_cast<char>(group >> (shift - 8) & 0xFFU);
  }
  const std::size_t left = characters % 4;
  const std::size_t missing = (4 - left) % 4;
  if (missing == 3 || filling > missing) return std::nullopt;
  group <<= 6 * missing;
  for (unsigned shift = 24; left > 0 && shift > 8 * missing; shift -= 8) {
    bytes += static_cast<char>(group >> (shift - 8) & 0xFFU);
  }
  return bytes;
}

}  // namespace platform
