#include "tests/support/PrivateBus.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

PrivateBus PrivateBus::session(const support::TemporaryFolder& folder, std::optional<uid_t> account) {
  const uid_t owner = account.value_or(::geteuid());
  const std::string own = folder.path() + "/" + std::to_string(owner);
  std::filesystem::create_directory(own);
  if (::chown(own.c_str(), owner, owner) != 0) throw std::runtime_error("cannot give " + own + " away");
  return {own + ".conf", own + "/bus", account,
          "<type>session</type><policy context='default'><allow send_destination='*' eavesdrop='true'/>"
          "<allow eavesdrop='true'/><allow own='*'/></policy>"};
}

PrivateBus PrivateBus::system(const support::TemporaryFolder& folder) {
  return {folder.path() + "/system.conf", folder.path() + "/system", std::nullopt,
          "<type>system</type><policy context='default'><allow user='*'/><deny own='*'/>"
          "<deny send_type='method_call'/><allow send_type='signal'/>"
          "<allow send_requested_reply='true' send_type='method_return'/>"
          "<allow send_requested_reply='true' send_type='error'/><allow receive_type='method_call'/>"
          "<allow receive_type='method_return'/><allow receive_type='error'/><allow receive_type='signal'/>"
          "<allow send_destination='org.freedesktop.DBus' send_interface='org.freedesktop.DBus'/></policy>"};
}

PrivateBus::PrivateBus(const std::string& configurationFile, const std::string& socket,
                       std::optional<uid_t> account, const std::string& typeAndPolicy)
    : address_("unix:path=" + socket) {
  std::ofstream(configurationFile) << "<busconfig>" << typeAndPolicy << "<listen>" << address_
                                   << "</listen><auth>EXTERNAL</auth></busconfig>";
  ::chmod(configurationFile.c_str(), 0644);
  daemon_ = std::make_unique<ChildProcess>(
      std::vector<std::string>{"dbus-daemon", "--nofork", "--nopidfile", "--nosyslog", "--print-address=1",
                               "--config-file=" + configurationFile},
      account);
  if (daemon_->line().empty()) throw std::runtime_error("the bus did not start");
}
