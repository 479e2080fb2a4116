// ditto -ck [--keepParent] SOURCE ARCHIVE
//
// Makes a zip archive of a file or folder, for systems that have no ditto at /usr/bin. -c (make an archive)
// and -k (a zip one) may be given together, in any order, or apart; "--" ends the options. With --keepParent
// the names in the archive begin with the folder's own, without it with those of its entries.
//
// The archive holds names, contents, modes, times of modification, links and empty folders; extended
// attributes and owners are left out. It appears under its name when it is whole, and replaces what had that
// name only then. What it is made of, and what is left out, is said in TreePacker.h; its form in ZipFile.h.
//
// Exit status: 0 when all is in it; 1 when something is missing in it, or when there is none, which standard
// error tells; 64 for wrong arguments. Memory stays below 32 MiB, whatever the sizes of the files (the list
// of entries comes on top, some 150 bytes for each).

#include <sys/resource.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/support/ditto/DeflateLine.h"
#include "platform/linux/support/ditto/PendingFile.h"
#include "platform/linux/support/ditto/TreePacker.h"
#include "platform/linux/support/ditto/ZipFile.h"

namespace {

constexpr int kUsageError = 64;

struct Request {
  bool makesArchive = false;
  bool isZip = false;
  ditto::KeepParent keepParent = ditto::KeepParent::no;
  std::string source;
  std::string archive;
};

bool takeLetters(const std::string& option, Request& request) {
  if (option.size() < 2 || option.front() != '-') return false;
  for (const char letter : option.substr(1)) {
    if (letter != 'c' && letter != 'k') return false;
    (letter == 'c' ? request.makesArchive : request.isZip) = true;
  }
  return true;
}

bool takeOption(const std::string& option, Request& request) {
  if (option != "--keepParent") return takeLetters(option, request);
  request.keepParent = ditto::KeepParent::yes;
  return true;
}

std::optional<Request> parse(const std::vector<std::string>& arguments) {
  Request request;
  auto argument = arguments.begin();
  for (; argument != arguments.end() && argument->starts_with('-') && *argument != "--"; ++argument) {
    if (!takeOption(*argument, request)) return std::nullopt;
  }
  if (argument != arguments.end() && *argument == "--") ++argument;
  if (!request.makesArchive || !request.isZip || arguments.end() - argument != 2) return std::nullopt;
  request.source = argument[0];
  request.archive = argument[1];
  return request;
}

int usage() {
  std::fputs("usage: ditto -ck [--keepParent] SOURCE ARCHIVE\n", stderr);
  return kUsageError;
}

int complain(const std::string& what) {
  std::fprintf(stderr, "ditto: %s\n", what.c_str());
  return 1;
}

/// A descriptor is held for each folder on the way down; a write that fails is an error, not the end.
void prepareProcess() {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

int pack(const Request& request) {
  auto archive = ditto::PendingFile::create(request.archive);
  if (!archive) return complain(archive.error().description);
  ditto::ZipFile zip(archive.value().descriptor());
  ditto::DeflateLine line(zip, ditto::DeflateLine::workersForThisMachine());
  const auto packed = ditto::TreePacker(line, zip, archive.value()).pack(request.source, request.keepParent);
  if (packed == ditto::Packed::nothing) return 1;
  line.drain();
  zip.finish();
  if (zip.failure() != 0)
    return complain(foundation::systemError(zip.failure(), request.archive).description);
  const auto published = archive.value().publish();
  if (!published) return complain(published.error().description);
  return packed == ditto::Packed::whole ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) try {
  const auto request = parse({argv + 1, argv + argc});
  if (!request) return usage();
  prepareProcess();
  return pack(*request);
} catch (const std::exception& failure) {
  return complain(failure.what());
}
