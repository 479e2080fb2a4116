#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

namespace support {

/// While it lives no thread can be started: none finds room for its stack.
class NoMoreThreads {
 public:
  NoMoreThreads() {
    ::pthread_getattr_default_np(&usual_);
    pthread_attr_t huge;
    ::pthread_attr_init(&huge);
    ::pthread_attr_setstacksize(&huge, std::size_t{1} << 50U);
    EXPECT_EQ(::pthread_setattr_default_np(&huge), 0);
    ::pthread_attr_destroy(&huge);
  }
  ~NoMoreThreads() {
    EXPECT_EQ(::pthread_setattr_default_np(&usual_), 0);
    ::pthread_attr_destroy(&usual_);
  }
  NoMoreThreads(const NoMoreThreads&) = delete;
  NoMoreThreads& operator=(const NoMoreThreads&) = delete;

 private:
  pthread_attr_t usual_{};
};

}  // namespace support
