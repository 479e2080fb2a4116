#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <ostream>
#include <string>
#include <vector>

#include "tests/hardening/Snapshot.h"
#include "tests/hardening/SupervisedRun.h"

namespace hardening {

/// A computer of the test's own that the helpers' programs run on: a folder that is "/" to them, in memory,
/// with this computer's /usr and /proc, root, and a user alice, who does what she can to turn root's work
/// elsewhere. Another user, bob, is a name in the account database.
///
///   /Users/alice/jobs/tree      file, sub/inner, sub/second: what a tool is told to work on
///   /Users/alice/disk           the same again, at the top of a volume of its own
///   /Users/alice/media/tree     the same, on a volume that can have no trash: /Users/alice/media/.Trashes is
///   a file /outside                    root's, and nobody's business: the same names, so that every way
///   leads on there
///
/// Everything in her home is alice's. The mounts end with the object. Without root there is no such computer:
/// a test skips itself then (QUILLMEND_NEEDS_ROOT_HERE).
class AttackedComputer {
 public:
  static constexpr uid_t kAlice = 4201;

  AttackedComputer();
  ~AttackedComputer();
  AttackedComputer(const AttackedComputer&) = delete;
  AttackedComputer& operator=(const AttackedComputer&) = delete;

  /// Where a path of the computer lies in this process's world.
  [[nodiscard]] std::string path(const std::string& place) const { return top_ + place; }

  /// Everything in the home as above, with an empty trash, whatever has happened to it.
  void restore() const;

  /// What alice has no right to: all but her home and the devices. Access times apart, nothing of it may
  /// change.
  [[nodiscard]] Snapshot outside() const;

  /// A file, alice's, with content and an attribute that no other file has.
  void makeFile(const std::string& place, mode_t mode = 0644) const;
  void makeFolder(const std::string& place, mode_t mode = 0755) const;
  void own(const std::string& place, uid_t user = kAlice) const;

  /// Every file of her home, and of the trashes of root and of the volume, by its content, a link by "link to
  /// " and its target, a FIFO by "FIFO " and its name: "left: " or "in the trash: " and what described()
  /// says, and all of them where there are several. What a copy that has not got its place yet holds does not
  /// count.
  [[nodiscard]] Snapshot files() const;

  /// Files of her home that have one's content and another's owner: of root's files outside what is not
  /// root's, and what is root's of others. A line each; what grows in a folder of root's does not count.
  [[nodiscard]] std::vector<std::string> mixedFiles() const;

  /// All of /Users, folders by what they are and not by when they changed.
  [[nodiscard]] Snapshot homes() const { return snapshotOf(path("/Users"), Changed::ignored); }

  /// Runs a command there, as root; `inChild` prepares the process further.
  [[nodiscard]] Finished run(const std::vector<std::string>& command, const OnCall& onCall = nullptr,
                             const std::function<void()>& inChild = nullptr,
                             const std::vector<unsigned>& only = {}) const;
  /// What the process that is to run there has to do first.
  void enter() const;

 private:
  void makeSystem() const;
  void makeOutside() const;
  void fill(const std::string& place, uid_t user) const;

  std::string top_;
};

/// A tool and the form of its command line, as the repair uses it.
struct Form {
  std::string name;
  std::vector<std::string> command;
  std::string tree;  ///< what it works on

  [[nodiscard]] bool usesTrash() const;
  [[nodiscard]] bool isVerb() const { return command.front().starts_with("/verbs/"); }
  [[nodiscard]] bool runs(const std::string& tool) const { return command.front().ends_with("/" + tool); }
  /// What a verb takes, copies or moves; what it makes, too.
  [[nodiscard]] const std::string& source() const {
    return runs("cp") || runs("mv") ? command[command.size() - 2] : command.back();
  }
};

[[nodiscard]] const std::vector<Form>& allForms();
/// The tools that root runs for the privileged verbs.
[[nodiscard]] const std::vector<Form>& verbForms();
/// A move to another volume by a program of the test's own, whose record of what it copied is in a file from
/// the third entry on.
[[nodiscard]] Form formThatRecords();
/// The helpers' and theirs.
[[nodiscard]] std::vector<Form> formsOfAll();
/// Those of trashtool among them.
[[nodiscard]] std::vector<Form> trashForms();
inline void PrintTo(const Form& form, std::ostream* stream) {
  *stream << form.name;
}
inline std::string nameOfForm(const ::testing::TestParamInfo<Form>& form) {
  return form.param.name;
}

#define QUILLMEND_NEEDS_ROOT_HERE() \
  if (geteuid() != 0) GTEST_SKIP() << "needs root: owners, mounts and another root folder"

}  // namespace hardening
