#include "simulation/machine/faults.h"

#include <utility>

namespace simulation {

using kestrelon::platform::kSuccess;

void Faults::FailNth(std::uint64_t n, Code code, CallsOf whose) {
  const std::lock_guard lock(mutex_);
  calls_ = 0;
  nth_left_ = n;
  nth_code_ = code;
  nth_of_ = whose;
  planner_ = std::this_thread::get_id();
  counted_.clear();
  fired_ = false;
  fired_name_.clear();
}

void Faults::FailNthOf(std::string_view name, std::uint64_t n, Code code) {
  const std::lock_guard lock(mutex_);
  NamedFault& fault = named_[std::string(name)];
  fault.calls_left = n;
  fault.once = code;
}

void Faults::FailAlways(std::string_view name, Code code) {
  const std::lock_guard lock(mutex_);
  named_[std::string(name)].always = code;
}

void Faults::RunBefore(std::string_view name, std::function<void()> action) {
  const std::lock_guard lock(mutex_);
  actions_[std::string(name)] = std::move(action);
}

void Faults::Clear() {
  const std::lock_guard lock(mutex_);
  calls_ = 0;
  nth_left_ = 0;
  named_.clear();
  actions_.clear();
  fired_ = false;
  fired_name_.clear();
}

std::uint64_t Faults::calls() const {
  const std::lock_guard lock(mutex_);
  return calls_;
}

std::vector<std::string> Faults::counted() const {
  const std::lock_guard lock(mutex_);
  return counted_;
}

bool Faults::fired() const {
  const std::lock_guard lock(mutex_);
  return fired_;
}

std::string Faults::fired_name() const {
  const std::lock_guard lock(mutex_);
  return fired_name_;
}

std::function<void()> Faults::TakeAction(std::string_view name) {
  const std::lock_guard lock(mutex_);
  const auto found = actions_.find(name);
  if (found == actions_.end()) return {};
  std::function<void()> action = std::move(found->second);
  actions_.erase(found);
  return action;
}

bool Faults::IsNth(std::string_view name) {
  const bool planners = std::this_thread::get_id() == planner_;
  if (nth_left_ == 0 || nth_of_ == (planners ? CallsOf::kOtherThreads : CallsOf::kThisThread)) {
    return false;
  }
  counted_.emplace_back(name);
  return --nth_left_ == 0;
}

Code Faults::Strike(std::string_view name, Code code) {
  fired_ = true;
  fired_name_ = name;
  return code;
}

void Faults::SetPower(bool on) {
  power_ = on;
  if (!on && when_power_goes_) when_power_goes_();
}

void Faults::Announce(std::string_view name) {
  if (const std::function<void()> action = TakeAction(name)) action();
}

Code Faults::Next(std::string_view name) {
  if (power_lost()) return kPowerLost;
  Announce(name);
  const std::lock_guard lock(mutex_);
  ++calls_;
  const auto found = named_.find(name);
  // A call is one call for each plan that may strike it, whichever does.
  bool once = false;
  if (found != named_.end() && found->second.calls_left > 0) {
    once = --found->second.calls_left == 0;
  }
  if (IsNth(name)) return Strike(name, nth_code_);
  if (once) return Strike(name, found->second.once);
  if (found != named_.end() && found->second.always != kSuccess) {
    return Strike(name, found->second.always);
  }
  return kSuccess;
}

}  // namespace simulation
