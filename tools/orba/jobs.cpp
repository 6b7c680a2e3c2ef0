#include "tools/orba/jobs.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "inspect/check/finding.h"
#include "inspect/container/names.h"
#include "tools/orba/failure.h"
#include "tools/orba/host_file.h"
#include "tools/orba/terminal.h"

namespace orba::tool {

namespace {

using Work = std::function<Outcome(std::size_t number)>;

constexpr const char* kNotTried = "not tried";

// Sets `end` where no other container fares better.
Outcome Try(const Batch& batch, const Work& work, std::size_t number, bool* end) {
  try {
    const Outcome outcome = work(number);
    *end = outcome.last;
    return outcome;
  } catch (const UsageFailure&) {
    throw;
  } catch (const Failure& failure) {
    Report(failure);
    *end = failure.IsFinal();
  } catch (const std::bad_alloc&) {
    ReportNoMemory();
  }
  return batch.failed;
}

class Pool {
 public:
  Pool(const Batch& batch, const Work& work, Progress* progress) : batch_(batch), work_(work), progress_(progress) {}

  ~Pool() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      end_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) thread.join();
  }

  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;

  // False where the system gives no thread at all.
  bool Start(std::size_t threads) {
    try {
      while (threads_.size() < threads) threads_.emplace_back([this] { WorkOn(); });
    } catch (const std::system_error&) {
      // As many as there are have to do.
    }
    return !threads_.empty();
  }

  std::vector<Outcome> Collect() {
    std::vector<Outcome> outcomes;
    while (outcomes.size() < batch_.count) {
      std::optional<Done> done = Await(outcomes.size());
      if (!done.has_value()) break;
      outcomes.push_back(done->outcome);
      PrintKept(done->told);
      progress_->Advance(1);
    }
    return outcomes;
  }

 private:
  // Finished containers that wait for their turn hold no more than this, but for those that are being worked on.
  static constexpr std::size_t kMostHeld = 16 * 1024 * 1024;

  struct Done {
    Outcome outcome;
    Kept told;
  };

  // Of the container whose turn it is; nothing where there will be none.
  std::optional<Done> Await(std::size_t number) {
    std::unique_lock<std::mutex> lock(mutex_);
    turn_ = number;
    changed_.notify_all();
    changed_.wait(lock, [&] { return thrown_ != nullptr || done_.count(number) != 0 || (end_ && number >= next_); });
    if (thrown_ != nullptr) std::rethrow_exception(thrown_);
    const auto found = done_.find(number);
    if (found == done_.end()) return std::nullopt;
    Done done = std::move(found->second);
    done_.erase(found);
    held_ -= done.told.size;
    return done;
  }

  void WorkOn() {
    for (;;) {
      const std::optional<std::size_t> number = Next();
      if (!number.has_value()) return;
      Done done;
      bool end = false;
      try {
        const Keeping keeping(&done.told);
        done.outcome = Try(batch_, work_, *number, &end);
      } catch (...) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (thrown_ == nullptr) thrown_ = std::current_exception();
        end = true;
      }
      {
        const std::lock_guard<std::mutex> lock(mutex_);
        held_ += done.told.size;
        done_.emplace(*number, std::move(done));
        end_ = end_ || end;
      }
      changed_.notify_all();
    }
  }

  std::optional<std::size_t> Next() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return end_ || next_ == batch_.count || held_ < kMostHeld || next_ == turn_; });
    if (end_ || next_ == batch_.count) return std::nullopt;
    return next_++;
  }

  const Batch& batch_;
  const Work& work_;
  Progress* progress_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t next_ = 0;  // the first that nobody works on yet
  std::size_t turn_ = 0;  // the next to be told of
  std::map<std::size_t, Done> done_;
  std::size_t held_ = 0;  // bytes of these
  bool end_ = false;
  std::exception_ptr thrown_;
  std::vector<std::thread> threads_;
};

std::vector<Outcome> OneByOne(const Batch& batch, const Work& work, Progress* progress) {
  std::vector<Outcome> outcomes;
  bool end = false;
  while (outcomes.size() < batch.count && !end) {
    Kept told;
    {
      const Keeping keeping(&told);
      outcomes.push_back(Try(batch, work, outcomes.size(), &end));
    }
    PrintKept(told);
    progress->Advance(1);
  }
  return outcomes;
}

}  // namespace

void DefineJobs(Syntax* syntax, std::uint32_t* jobs) {
  syntax->Number("-j,--jobs", "N", jobs, {1, 256}, "work on N containers at a time, not one for each processor");
}

std::vector<Outcome> RunBatch(const Batch& batch, const Work& work) {
  const std::size_t wanted = batch.jobs != 0 ? batch.jobs : std::max(1u, std::thread::hardware_concurrency());
  const std::size_t threads = std::min(wanted, batch.count);
  std::vector<Outcome> outcomes;
  if (batch.count == 1) {  // printed as it comes
    bool end = false;
    outcomes.push_back(Try(batch, work, 0, &end));
  } else {
    Progress progress(batch.label, batch.count, batch.quiet, Progress::Unit::kContainers);
    Pool pool(batch, work, &progress);
    outcomes = threads > 1 && pool.Start(threads) ? pool.Collect() : OneByOne(batch, work, &progress);
  }
  outcomes.resize(batch.count, {batch.failed.status, kNotTried});
  return outcomes;
}

std::string Summary(const std::vector<Outcome>& outcomes, std::initializer_list<const char*> words) {
  std::map<std::string, std::size_t> counts;
  for (const Outcome& outcome : outcomes) ++counts[outcome.word];
  std::vector<std::string> order(words.begin(), words.end());
  order.emplace_back(kNotTried);
  std::string text;
  for (const std::string& word : order) {
    if (counts.count(word) != 0) text += (text.empty() ? ": " : ", ") + std::to_string(counts[word]) + " " + word;
  }
  return inspect::Counted(outcomes.size(), "container") + text + "\n";
}

int WorstStatus(const std::vector<Outcome>& outcomes, std::initializer_list<int> rising) {
  const auto rank = [&rising](int status) { return std::find(rising.begin(), rising.end(), status); };
  int worst = *rising.begin();
  for (const Outcome& outcome : outcomes) {
    if (rank(outcome.status) > rank(worst)) worst = outcome.status;
  }
  return worst;
}

std::vector<std::string> PlacesInto(const std::string& folder, const std::vector<std::string>& containers,
                                    const std::string& suffix) {
  std::vector<std::string> places;
  std::map<std::string, std::string> taken;  // by the name in upper case
  for (const std::string& container : containers) {
    std::string name = BaseName(container);
    const std::string ending = ".ORB";
    const std::size_t stem = name.size() - std::min(name.size(), ending.size());
    if (stem > 0 && inspect::UpperCase(name.substr(stem)) == ending) name.resize(stem);
    const auto [first, fresh] = taken.emplace(inspect::UpperCase(name), container);
    if (!fresh) {
      throw Failure(
          "cannot write both " + ShellWord(first->second) + " and " + ShellWord(container) + " into " + folder,
          "both would be " + name + suffix, "nothing was written; take them one after the other");
    }
    places.push_back(JoinPath(folder, name + suffix));
  }
  return places;
}

}  // namespace orba::tool
