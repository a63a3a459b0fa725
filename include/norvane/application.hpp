// The application object: the filtered command line, the organisation and
// application identity that the standard paths and the settings store build
// their directories from, and the exit flag that the main loop polls.
#pragma once

#include <norvane/export.hpp>

#include <memory>
#include <string>
#include <vector>

namespace norvane {

class application_core_pimpl;

// Construct one first thing in main(). The most recently constructed object
// is the process-wide instance; destroying any application_core clears it,
// even one that is no longer current (there is no reference count).
class NORVANE_API application_core {
public:
  // Keeps argv minus the launcher's "-psn_..." arguments, with argument #0
  // made canonical. When argument #0 cannot be resolved it is kept as given
  // and an error is logged through the library logger.
  application_core(int argc, char** argv);
  // For derived applications that build a derived record: adopts `impl`
  // (allocated with new) and makes `impl`'s owner the instance.
  explicit application_core(application_core_pimpl& impl);
  virtual ~application_core();
  application_core(const application_core&) = delete;
  application_core& operator=(const application_core&) = delete;

  // Null before the first construction and after any destruction.
  static application_core* instance() noexcept;

  // Build constants: os() "-" arch(), for instance "linux-x86_64".
  static std::string platform() noexcept;
  static std::string os();
  static std::string arch();

  // The identity lives on the instance, not on the object called: these
  // read and write instance()'s record. Without an instance the getters
  // return an empty string, the application setters do nothing, and the
  // organisation setters end the process (they have nowhere to write).
  const std::string& organization_name() const noexcept;
  void set_organization_name(const std::string& name) noexcept;
  const std::string& organization_domain() const noexcept;
  void set_organization_domain(const std::string& domain) noexcept;
  // Unless set, the stem of argument #0 ("tool" for /opt/bin/tool.bin),
  // derived at the first call and kept.
  const std::string& application_name() const noexcept;
  void set_application_name(const std::string& name) noexcept;
  const std::string& application_version() const noexcept;
  void set_application_version(const std::string& version) noexcept;

  // The parent directory of this object's argument #0; empty without arguments.
  std::string application_dir_path() const noexcept;
  const std::vector<std::string>& arguments() const noexcept;

  // A sequentially consistent flag: exit() may be called from any thread
  // (a signal-handling thread, a worker) while the main loop polls.
  void exit() noexcept;
  void reset_exit() noexcept;
  bool should_exit() const noexcept;

  // Deliberately empty: kept for applications that override nothing yet
  // call it from their restart path.
  void restart() noexcept;

private:
  static application_core* self;
  std::unique_ptr<application_core_pimpl> impl_;
};

// The file of the loaded image (executable or shared library) whose code
// called this function; empty when the loader cannot tell. The executable's
// name is reported as the loader knows it, which may be relative.
NORVANE_API std::string module_path();

}  // namespace norvane
