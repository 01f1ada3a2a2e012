#include "gateway/alarms/Notifier.h"

#include <atomic>
#include <deque>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "gateway/AlarmFacts.h"
#include "gateway/alarms/Command.h"
#include "gateway/alarms/ProcessEnds.h"
#include "platform/foundation/NSDateFormatter.h"

namespace brenloft {
namespace {

std::vector<std::pair<std::string, std::string>> factsOf(const AlarmNotice& notice, const Label& label) {
  const AlarmRule& rule = notice.rule;
  return {{"BRENLOFT_EVENT", notice.isRaised ? "raised" : "cleared"},
          {"BRENLOFT_ALARM", rule.name},
          {"BRENLOFT_SEVERITY", std::string(textOf(rule.severity))},
          {"BRENLOFT_TEXT", rule.text},
          {"BRENLOFT_BEACON", notice.beacon.text()},
          {"BRENLOFT_NAME", label.name.empty() ? notice.beacon.text() : label.name},
          {"BRENLOFT_PLACE", label.place},
          {"BRENLOFT_QUANTITY", std::string(textOf(rule.quantity))},
          {"BRENLOFT_VALUE", notice.value ? valueText(rule.quantity, *notice.value) : ""},
          {"BRENLOFT_TIME", platform::rfc3339Text(notice.at)}};
}

}  // namespace

// Everything happens on its queue.
class Notifier::Core : public std::enable_shared_from_this<Core> {
 public:
  Core(std::shared_ptr<platform::DispatchService> dispatch, platform::dispatch_queue_t handlerQueue,
       Handlers handlers)
      : dispatch_(std::move(dispatch)),
        queue_(dispatch_->createQueue("alarm commands")),
        handlerQueue_(std::move(handlerQueue)),
        handlers_(std::move(handlers)) {}

  void post(AlarmNotice notice, Label label) {
    queue_->async([core = shared_from_this(), task = Task{std::move(notice), std::move(label)}]() mutable {
      core->add(std::move(task));
    });
  }
  void close() { isClosed_ = true; }

 private:
  struct Task {
    AlarmNotice notice;
    Label label;
  };
  // Of one rule.
  struct Line {
    std::deque<Task> waiting;
    std::optional<Task> running;
    int process = 0;
    bool isOverdue = false;
  };

  void add(Task task) {
    const std::string name = task.notice.rule.name;
    Line& line = lines_[name];
    if (line.waiting.size() >= kMostWaiting)
      return reportFailure(task.notice.rule, "too many notices wait for it");
    line.waiting.push_back(std::move(task));
    if (!line.running) startNext(name);
  }

  void startNext(const std::string& name) {
    Line& line = lines_[name];
    while (!line.waiting.empty()) {
      line.running = std::move(line.waiting.front());
      line.waiting.pop_front();
      if (start(name, line)) return;
      finish(line);
    }
    lines_.erase(name);
  }

  bool start(const std::string& name, Line& line) {
    const AlarmRule& rule = line.running->notice.rule;
    const auto process = startCommand(rule.exec, factsOf(line.running->notice, line.running->label));
    if (!process) return reportFailure(rule, process.error().text), false;
    line.process = *process;
    line.isOverdue = false;
    const auto onEnd = [weak = weak_from_this(), queue = queue_, name] {
      queue->async([weak, name] {
        if (const auto core = weak.lock()) core->ended(name);
      });
    };
    if (!ends_.watch(*process, onEnd)) {
      killCommand(*process);
      reapCommand(*process);
      return reportFailure(rule, "its end cannot be watched"), false;
    }
    dispatch_->after(rule.execTimeout, queue_, [weak = weak_from_this(), name, started = *process] {
      if (const auto core = weak.lock()) core->timeIsUp(name, started);
    });
    return true;
  }

  void timeIsUp(const std::string& name, int process) {
    const auto line = lines_.find(name);
    if (line == lines_.end() || line->second.process != process) return;
    line->second.isOverdue = true;
    killCommand(process);
  }

  void ended(const std::string& name) {
    Line& line = lines_[name];
    const AlarmRule& rule = line.running->notice.rule;
    const std::string failure = reapCommand(std::exchange(line.process, 0));
    if (line.isOverdue)
      reportFailure(rule, fmt::format("it took longer than {} s and was ended",
                                      std::chrono::duration<double>(rule.execTimeout).count()));
    else if (!failure.empty())
      reportFailure(rule, failure);
    else if (failing_.erase(name) != 0)
      report(rule, "works again");
    finish(line);
    startNext(name);
  }

  void finish(Line& line) {
    handlerQueue_->async([core = shared_from_this(), notice = std::move(line.running->notice)] {
      if (!core->isClosed_) core->handlers_.onDone(notice);
    });
    line.running.reset();
  }

  void reportFailure(const AlarmRule& rule, const std::string& reason) {
    if (failing_.insert(rule.name).second) report(rule, "failed: " + reason);
  }

  void report(const AlarmRule& rule, const std::string& what) {
    handlerQueue_->async([core = shared_from_this(),
                          line = fmt::format("alarm \"{}\": {} {}", rule.name, rule.exec.front(), what)] {
      if (!core->isClosed_ && core->handlers_.onMessage) core->handlers_.onMessage(line);
    });
  }

  const std::shared_ptr<platform::DispatchService> dispatch_;
  const platform::dispatch_queue_t queue_;
  const platform::dispatch_queue_t handlerQueue_;
  const Handlers handlers_;
  std::atomic<bool> isClosed_{false};
  std::map<std::string, Line> lines_;  // by the rule's name
  std::set<std::string> failing_;      // the rules whose failure was told
  ProcessEnds ends_;                   // last: its thread ends before the rest
};

Notifier::Notifier(std::shared_ptr<platform::DispatchService> dispatch,
                   platform::dispatch_queue_t handlerQueue, Handlers handlers)
    : core_(std::make_shared<Core>(std::move(dispatch), std::move(handlerQueue), std::move(handlers))) {}

Notifier::~Notifier() {
  core_->close();
}

void Notifier::notify(AlarmNotice notice, Label label) {
  core_->post(std::move(notice), std::move(label));
}

}  // namespace brenloft
