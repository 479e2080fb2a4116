#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <new>
#include <type_traits>
#include <utility>

/// Work that waits in a queue, with what it needs kept in place: std::function asks for memory for anything
/// larger than two pointers, and memory that one thread gets and another gives back is dear. Work that does
/// not fit is kept in a std::function all the same. Moved, never copied; REQUIRES one that has not been moved
/// from for perform().
class QueuedOperation {
 public:
  template <typename Work, typename Kept = std::decay_t<Work>,
            typename = std::enable_if_t<!std::is_same_v<Kept, QueuedOperation>>>
  explicit QueuedOperation(Work&& work) {  // NOLINT(*-member-init): place_ holds nothing until then
    if constexpr (sizeof(Kept) <= kSize && std::is_nothrow_move_constructible_v<Kept>) {
      keep<Kept>(std::forward<Work>(work));
    } else {
      keep<std::function<void()>>(std::forward<Work>(work));
    }
  }
  QueuedOperation(QueuedOperation&& other) noexcept { takeFrom(other); }
  QueuedOperation& operator=(QueuedOperation&& other) noexcept {
    if (this != &other) {
      destroy();
      takeFrom(other);
    }
    return *this;
  }
  ~QueuedOperation() { destroy(); }
  QueuedOperation(const QueuedOperation&) = delete;
  QueuedOperation& operator=(const QueuedOperation&) = delete;

  void perform() { kind_->perform(place_.data()); }

 private:
  static constexpr std::size_t kSize = 64;

  /// What can be done with work of one type.
  struct Kind {
    void (*perform)(void* work);
    void (*move)(void* from, void* to) noexcept;  ///< nothing is left behind
    void (*destroy)(void* work) noexcept;
  };

  template <typename Kept>
  static constexpr Kind kKindOf = {[](void* work) { (*static_cast<Kept*>(work))(); },
                                   [](void* from, void* to) noexcept {
                                     ::new (to) Kept(std::move(*static_cast<Kept*>(from)));
                                     static_cast<Kept*>(from)->~Kept();
                                   },
                                   [](void* work) noexcept { static_cast<Kept*>(work)->~Kept(); }};

  template <typename Kept, typename Work>
  void keep(Work&& work) {
    static_assert(alignof(Kept) <= alignof(std::max_align_t));
    ::new (place_.data()) Kept(std::forward<Work>(work));
    kind_ = &kKindOf<Kept>;
  }
  void takeFrom(QueuedOperation& other) noexcept {
    kind_ = std::exchange(other.kind_, nullptr);
    if (kind_ != nullptr) kind_->move(other.place_.data(), place_.data());
  }
  void destroy() noexcept {
    if (kind_ != nullptr) kind_->destroy(place_.data());
    kind_ = nullptr;
  }

  alignas(std::max_align_t) std::array<std::byte, kSize> place_;
  const Kind* kind_ = nullptr;
};
