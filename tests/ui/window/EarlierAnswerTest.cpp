#include "ui/window/askpass/EarlierAnswer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "platform/posix/UniqueDescriptor.h"
#include "tests/support/TemporaryFolder.h"

namespace window {
namespace {

using platform::UniqueDescriptor;

constexpr const char* kPrompt = "[sudo] password for alice: ";

TEST(EarlierAnswer, APromptThatWasAnsweredIsKnownAndAnotherIsNot) {
  const UniqueDescriptor memory(::memfd_create("sudo", MFD_CLOEXEC));
  EXPECT_FALSE(wasAnswered(memory.get(), kPrompt));
  noteAnswer(memory.get(), kPrompt);
  EXPECT_TRUE(wasAnswered(memory.get(), kPrompt));
  EXPECT_FALSE(wasAnswered(memory.get(), "One-time code: "));
}

TEST(EarlierAnswer, WhatSudoSaysBetweenTwoAnswersStays) {
  const UniqueDescriptor memory(::memfd_create("sudo", MFD_CLOEXEC));
  noteAnswer(memory.get(), kPrompt);
  const std::string words = "Sorry, try again.\n";
  ASSERT_EQ(::write(memory.get(), words.data(), words.size()), static_cast<ssize_t>(words.size()));
  noteAnswer(memory.get(), kPrompt);
  std::string text(4096, '\0');
  text.resize(static_cast<std::size_t>(::pread(memory.get(), text.data(), text.size(), 0)));
  const std::string line = std::string("askpass: answered ") + kPrompt + "\n";
  EXPECT_EQ(text, line + words + line);
}

TEST(EarlierAnswer, AFileThatSomebodyReadsIsNeitherWrittenNorTrusted) {
  const support::TemporaryFolder folder;
  const std::string path = folder.file("log", std::string("askpass: answered ") + kPrompt + "\n");
  const UniqueDescriptor named(::open(path.c_str(), O_RDWR | O_CLOEXEC));
  EXPECT_FALSE(wasAnswered(named.get(), kPrompt));
  const UniqueDescriptor pipe(::open("/dev/null", O_RDWR | O_CLOEXEC));
  for (const int descriptor : {named.get(), pipe.get(), -1}) noteAnswer(descriptor, kPrompt);
  EXPECT_FALSE(wasAnswered(-1, kPrompt));
  std::string text(64, '\0');
  text.resize(static_cast<std::size_t>(::pread(named.get(), text.data(), text.size(), 0)));
  EXPECT_EQ(text, std::string("askpass: answered ") + kPrompt + "\n");
}

}  // namespace
}  // namespace window
