// The private record of application_core, public so that a derived
// application can derive its own record from it and hand it over.
#pragma once

#include <norvane/export.hpp>

#include <atomic>
#include <string>
#include <vector>

namespace norvane {

class application_core;

class NORVANE_API application_core_pimpl {
public:
  // Filters and canonicalises the command line (see application_core).
  // argc is taken by reference for derived records that consume arguments.
  application_core_pimpl(application_core* owner, int& argc, char** argv);
  virtual ~application_core_pimpl();
  application_core_pimpl(const application_core_pimpl&) = delete;
  application_core_pimpl& operator=(const application_core_pimpl&) = delete;

  std::string organization_name;
  std::string organization_domain;
  std::string application_name;
  std::string application_version;
  application_core* owner;
  std::vector<std::string> arguments;
  std::atomic<bool> exit_flag{false};
};

}  // namespace norvane
