#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <boost/asio/any_io_executor.hpp>

#include "Agent/IndexReport.hpp"

namespace zephyl::sandbox {

/// Keeps the lexical indexes of all shared folders on a thread of its own, so that walking a large
/// folder never holds up an answer. Used from the home executor, where the reports arrive too: some
/// while a folder is being walked, and one whenever it is caught up with. Destruction ends the
/// thread within one step of its work, and no report comes afterwards.
class Indexer {
 public:
  using OnReport = std::function<void(const IndexReport&)>;
  using OnFound = std::function<void(std::vector<std::string>)>;

  Indexer(boost::asio::any_io_executor home, OnReport onReport);
  ~Indexer();
  Indexer(const Indexer&) = delete;
  Indexer& operator=(const Indexer&) = delete;

  void add(const std::string& root);
  void remove(const std::string& root);

  /// Answers, at home, with the absolute paths of files that hold the word, in all folders; at most
  /// 100.
  void find(std::string word, OnFound onFound);

 private:
  class Worker;
  std::unique_ptr<Worker> worker_;
};

}  // namespace zephyl::sandbox
