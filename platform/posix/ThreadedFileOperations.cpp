#include "platform/posix/ThreadedFileOperations.h"

#include <system_error>
#include <thread>

#include "platform/foundation/Paths.h"
#include "platform/posix/BlockedSignals.h"

namespace platform {
namespace {

using foundation::PropertyList;

bool isPath(const std::string& text) {
  return !text.empty() && text.find('\0') == std::string::npos;
}

}  // namespace

void ThreadedCopy::tellProgress(const std::string& currentItem, OSStatus error,
                                std::optional<PropertyList> status) const {
  send({request_.operation, currentItem, FileOperationStage::running, error}, std::move(status),
       request_.callback);
}

void ThreadedCopy::tellEnd(OSStatus status) {
  send({request_.operation, "", FileOperationStage::complete, status}, std::nullopt,
       std::move(request_.callback));
}

void ThreadedCopy::send(FileOperationUpdate news, std::optional<PropertyList> status,
                        FileOperations::StatusCallback callback) const {
  auto deliver = [operation = request_.operation, news = std::move(news), status = std::move(status),
                  callback = std::move(callback)]() mutable {
    if (!operation->isScheduled) return;
    if (status) news.statusDictionary = &*status;
    callback(news);
  };
  request_.mainThread.perform(std::move(deliver), Wait::no);
}

ThreadedFileOperations::~ThreadedFileOperations() {
  std::unique_lock lock(mutex_);
  for (const ThreadedFileOperationRef& operation : running_) operation->stop();
  ended_.wait(lock, [this] { return running_.empty(); });
}

ThreadedFileOperationRef ThreadedFileOperations::ours(const FileOperationRef& operation) const {
  return isOwn(operation) ? std::dynamic_pointer_cast<ThreadedFileOperation>(operation) : nullptr;
}

void ThreadedFileOperations::add(const ThreadedFileOperationRef& operation) {
  const std::scoped_lock lock(mutex_);
  running_.push_back(operation);
}

void ThreadedFileOperations::remove(ThreadedFileOperationRef operation) {
  const std::scoped_lock lock(mutex_);
  std::erase(running_, operation);
  operation.reset();
  ended_.notify_all();  // before the lock is given back, after which all of this may be gone
}

OSStatus ThreadedFileOperations::scheduleOnMainThread(const FileOperationRef& operation) {
  const auto own = ours(operation);
  if (own == nullptr) return paramErr;
  own->isScheduled = true;
  return noErr;
}

OSStatus ThreadedFileOperations::unscheduleFromMainThread(const FileOperationRef& operation) {
  const auto own = ours(operation);
  return own != nullptr && own->isScheduled.exchange(false) ? noErr : paramErr;
}

OSStatus ThreadedFileOperations::copyObject(const FileOperationRef& operation, const std::string& source,
                                            const std::string& destinationFolder,
                                            const std::string& destinationName,
                                            std::chrono::nanoseconds statusInterval,
                                            StatusCallback callback) {
  auto own = ours(operation);
  if (own == nullptr || !isPath(source) || !isPath(destinationFolder) ||
      !foundation::isItemName(destinationName)) {
    return paramErr;
  }
  if (own->hasBegun.exchange(true)) return paramErr;
  return begin({std::move(own), source, destinationFolder, destinationName, statusInterval,
                std::move(callback), mainThread_, clock_});
}

OSStatus ThreadedFileOperations::runOnThread(std::unique_ptr<ThreadedCopy> copy) {
  ThreadedFileOperationRef operation = copy->request().operation;
  add(operation);
  try {
    const BlockedSignals blocked;
    std::thread([this, operation = operation, copy = std::move(copy)]() mutable {
      copy->run();
      copy.reset();
      remove(std::move(operation));
    }).detach();
  } catch (const std::system_error&) {
    remove(std::move(operation));
    return memFullErr;
  }
  return noErr;
}

OSStatus ThreadedFileOperations::cancel(const FileOperationRef& operation) {
  const auto own = ours(operation);
  return own != nullptr && own->hasBegun ? own->stop() : paramErr;
}

}  // namespace platform
