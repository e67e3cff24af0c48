// The service manager as this process meets it when it runs as a service.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "platform/service_host.h"

namespace simulation {

class ServiceHost {
 public:
  using Code = kestrelon::platform::Code;
  using Report = kestrelon::platform::ServiceReport;
  using StatusHandle = kestrelon::platform::ServiceStatusHandle;
  using Handler = std::uint32_t (*)(std::uint32_t control);

  // Whether the manager started this process. Set before the product runs.
  bool started_by_manager = false;

  // What the service has reported since it was started, in order.
  std::vector<Report> reports() const;

  // Blocks until the service has reported the state, and gives that report.
  Report WaitForState(std::uint32_t state) const;

  // Has the manager send a control: the service's answer, given on a thread of its own, or the
  // manager's refusal when the service's last report does not accept it.
  Code SendControl(std::uint32_t control);

  // For the seam.
  Code Run(void (*entry)());
  StatusHandle RegisterControls(Handler handler);
  Code TakeReport(StatusHandle status, const Report& report);

 private:
  Code Refusal(std::uint32_t control) const;  // needs mutex_

  mutable std::mutex mutex_;  // guards all below
  mutable std::condition_variable reported_;
  bool hosted_ = false;  // the entry routine runs
  Handler handler_ = nullptr;
  StatusHandle status_ = 0;
  std::vector<Report> reports_;
};

}  // namespace simulation
