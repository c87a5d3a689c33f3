#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>

#include "Agent/Index/FolderIndex.hpp"

namespace zephyl::sandbox {

/// Maintains the indexes of all shared folders on its own thread, so that walking a large folder
/// delays no answer. Must be used on the home executor, where reports are delivered: some while a
/// folder is being walked, and one whenever its index is up to date. The destructor ends the thread
/// after at most one step of its work. No report is delivered afterwards.
class Indexer {
 public:
  using OnReport = std::function<void(const IndexReport&)>;

  Indexer(boost::asio::any_io_executor home, OnReport onReport);
  ~Indexer();
  Indexer(const Indexer&) = delete;
  Indexer& operator=(const Indexer&) = delete;

  void add(const std::string& root);
  void remove(const std::string& root);

  /// Returns the absolute paths of at most 100 files that contain the word.
  boost::asio::awaitable<std::vector<std::string>> find(const std::string& word);

 private:
  class Worker;
  std::unique_ptr<Worker> worker_;
};

}  // namespace zephyl::sandbox
