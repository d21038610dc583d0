#pragma once
// Where work continues. The main queue, the library's thread pool and a thread blocked in
// Task::get() are executors; a suspended task resumes on the executor it runs under.

#include <functional>
#include <memory>

namespace velora {

/// Where work continues: the main queue, the library's thread pool, or a thread blocked in
/// Task::get(). A suspended task resumes on the executor it runs under; implement it to run tasks on
/// a queue of the application's.
class Executor {
 public:
  virtual ~Executor() = default;
  /// Runs `work` later, once, on one of this executor's threads.
  virtual void post(std::function<void()> work) = 0;
};

/// A small pool of threads for library work that must leave the transport's I/O thread (token
/// handling, keychain writes) and for tasks that run on no queue of the application's.
std::shared_ptr<Executor> makeThreadPool(unsigned threads = 2);

}  // namespace velora
