#include "ui/window/askpass/EarlierAnswer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "platform/posix/UniqueDescriptor.h"
#include "tests/support/TemporaryFolder.h"

namespace window {
namespace {

using platform::UniqueDescriptor;

constexpr const char* kPrompt = "[sudo] password for alice: ";

std::string contentOf(int file) {
  std::string text(4096, '\0');
  const ssize_t count = ::pread(file, text.data(), text.size(), 0);
  text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  return text;
}

/// What an askpass leaves when a prompt is answered.
std::string noteFor(const char* prompt) {
  const UniqueDescriptor memory(::memfd_create("sudo", MFD_CLOEXEC));
  noteAnswer(memory.get(), prompt);
  return contentOf(memory.get());
}

TEST(EarlierAnswer, APromptThatWasAnsweredIsKnownAndAnotherIsNot) {
  const UniqueDescriptor memory(::memfd_create("sudo", MFD_CLOEXEC));
  EXPECT_FALSE(wasAnswered(memory.get(), kPrompt));
  noteAnswer(memory.get(), kPrompt);
  EXPECT_TRUE(wasAnswered(memory.get(), kPrompt));
  EXPECT_FALSE(wasAnswered(memory.get(), "One-time code: "));
}

TEST(EarlierAnswer, ADialogThatAsksIsNotedAndIsNoAnswer) {
  const UniqueDescriptor memory(::memfd_create("sudo", MFD_CLOEXEC));
  noteQuestion(memory.get());
  EXPECT_EQ(contentOf(memory.get()), "askpass: asks\n");
  EXPECT_FALSE(wasAnswered(memory.get(), kPrompt));
}

TEST(EarlierAnswer, WhatSudoSaysBetweenTwoAnswersStays) {
  const UniqueDescriptor memory(::memfd_create("sudo", MFD_CLOEXEC));
  noteAnswer(memory.get(), kPrompt);
  const std::string words = "Sorry, try again.\n";
  ASSERT_EQ(::write(memory.get(), words.data(), words.size()), static_cast<ssize_t>(words.size()));
  noteAnswer(memory.get(), kPrompt);
  const std::string text = contentOf(memory.get());
  const std::string line = text.substr(0, text.find('\n') + 1);
  EXPECT_EQ(text, line + words + line);
}

/// Who started sudo tells by its messages why it ended.
TEST(EarlierAnswer, ThePromptsWordsAreNotAmongSudosMessages) {
  const UniqueDescriptor memory(::memfd_create("sudo", MFD_CLOEXEC));
  const std::string prompt = "3 incorrect password attempts\nno password was provided";
  noteAnswer(memory.get(), prompt);
  EXPECT_TRUE(wasAnswered(memory.get(), prompt));
  const std::string text = contentOf(memory.get());
  EXPECT_TRUE(text.starts_with("askpass: answered ")) << text;
  EXPECT_EQ(text.find("password"), std::string::npos) << text;
}

TEST(EarlierAnswer, AFileThatSomebodyReadsIsNeitherWrittenNorTrusted) {
  const support::TemporaryFolder folder;
  const std::string path = folder.file("log", noteFor(kPrompt));
  const UniqueDescriptor named(::open(path.c_str(), O_RDWR | O_CLOEXEC));
  EXPECT_FALSE(wasAnswered(named.get(), kPrompt));
  const UniqueDescriptor pipe(::open("/dev/null", O_RDWR | O_CLOEXEC));
  for (const int descriptor : {named.get(), pipe.get(), -1}) {
    noteQuestion(descriptor);
    noteAnswer(descriptor, kPrompt);
  }
  EXPECT_FALSE(wasAnswered(-1, kPrompt));
  EXPECT_EQ(contentOf(named.get()), noteFor(kPrompt));
}

TEST(EarlierAnswer, AFileThatHasLostItsNameIsNeitherWrittenNorTrusted) {
  const support::TemporaryFolder folder;
  for (const std::string& place : {folder.path(), std::string("/dev/shm")}) {
    std::string path = place + "/deleted.XXXXXX";
    const UniqueDescriptor deleted(::mkostemp(path.data(), O_CLOEXEC));
    ASSERT_TRUE(deleted) << path;
    ASSERT_EQ(::unlink(path.c_str()), 0);
    noteQuestion(deleted.get());
    noteAnswer(deleted.get(), kPrompt);
    EXPECT_EQ(contentOf(deleted.get()), "") << path;
    const std::string note = noteFor(kPrompt);
    ASSERT_EQ(::write(deleted.get(), note.data(), note.size()), static_cast<ssize_t>(note.size()));
    EXPECT_FALSE(wasAnswered(deleted.get(), kPrompt)) << path;
  }
}

}  // namespace
}  // namespace window
