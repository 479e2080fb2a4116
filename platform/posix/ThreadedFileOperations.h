#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/Clock.h"
#include "platform/FileOperations.h"
#include "platform/MainThread.h"

/// What file operations have in common whose copies run each on a thread of its own, however they copy.
namespace platform {

class ThreadedFileOperation : public FileOperation {
 public:
  /// Asks its copy to stop; from any thread, and from the moment on that it has begun.
  virtual OSStatus stop() = 0;

  std::atomic<bool> isScheduled = false;
  std::atomic<bool> hasBegun = false;
};
using ThreadedFileOperationRef = std::shared_ptr<ThreadedFileOperation>;

/// What copyObject() was asked for, and what to do it with.
struct CopyRequest {
  ThreadedFileOperationRef operation;
  std::string source;
  std::string destinationFolder;
  std::string destinationName;
  std::chrono::nanoseconds statusInterval;
  FileOperations::StatusCallback callback;
  MainThread& mainThread;
  Clock& clock;
};

/// One copy: made where it is begun, then run and destroyed on its thread.
class ThreadedCopy {
 public:
  explicit ThreadedCopy(CopyRequest request) : request_(std::move(request)) {}
  virtual ~ThreadedCopy() = default;
  ThreadedCopy(const ThreadedCopy&) = delete;
  ThreadedCopy& operator=(const ThreadedCopy&) = delete;

  [[nodiscard]] const CopyRequest& request() const { return request_; }
  virtual void run() = 0;

 protected:
  /// Has the callback hear it on the main thread, if the operation is scheduled when that comes to it.
  void tellProgress(const std::string& currentItem, OSStatus error,
                    std::optional<foundation::PropertyList> status) const;
  /// The same for the end, after which nothing more is told. The callback is given away with what it holds,
  /// so that the last of it goes on the main thread.
  void tellEnd(OSStatus status);

 private:
  void send(FileOperationUpdate news, std::optional<foundation::PropertyList> status,
            FileOperations::StatusCallback callback) const;

  CopyRequest request_;
};

/// The service without the copying itself, which a derived class adds. The callback of a copy that has begun
/// is destroyed on the main thread.
class ThreadedFileOperations : public FileOperations {
 public:
  ThreadedFileOperations(MainThread& mainThread, Clock& clock) : mainThread_(mainThread), clock_(clock) {}
  /// Stops what runs and waits for it; both references are used until then.
  ~ThreadedFileOperations() override;
  ThreadedFileOperations(const ThreadedFileOperations&) = delete;
  ThreadedFileOperations& operator=(const ThreadedFileOperations&) = delete;

  OSStatus scheduleOnMainThread(const FileOperationRef& operation) final;
  OSStatus unscheduleFromMainThread(const FileOperationRef& operation) final;
  OSStatus copyObject(const FileOperationRef& operation, const std::string& source,
                      const std::string& destinationFolder, const std::string& destinationName,
                      std::chrono::nanoseconds statusInterval, StatusCallback callback) final;
  OSStatus cancel(const FileOperationRef& operation) final;

 protected:
  /// Runs a copy on a thread that signals are kept from; memFullErr where none can be started. The copy must
  /// do with what its request holds: it runs until this class's destructor has waited for it, and there all
  /// that a derived class has added to this object is gone.
  OSStatus runOnThread(std::unique_ptr<ThreadedCopy> copy);

 private:
  /// Whether create() makes operations of that class. nullptr is none.
  [[nodiscard]] virtual bool isOwn(const FileOperationRef& operation) const = 0;
  /// Begins, by runOnThread(), what is in order and of an own operation; the status for copyObject() to
  /// answer.
  virtual OSStatus begin(CopyRequest request) = 0;

  [[nodiscard]] ThreadedFileOperationRef ours(const FileOperationRef& operation) const;
  void add(const ThreadedFileOperationRef& operation);
  /// Lets go of it before who waits for the end goes on.
  void remove(ThreadedFileOperationRef operation);

  MainThread& mainThread_;
  Clock& clock_;
  std::mutex mutex_;  ///< guards running_
  std::condition_variable ended_;
  std::vector<ThreadedFileOperationRef> running_;
};

}  // namespace platform
