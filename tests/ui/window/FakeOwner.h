#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "tests/ui/window/FakeShortcutKeyOwner.h"
#include "ui/InterfaceOwner.h"

/// An owner that writes down what it is told, each call as a line.
class FakeOwner : public outlets::InterfaceOwner {
 public:
  bool interfaceDidLoad(const outlets::Connections& loaded) override {
    connections = loaded;
    lines.emplace_back("loaded");
    if (whenLoaded) whenLoaded();
    return startsUp;
  }
  bool respondsToAction(const std::string& action) override { return !unknown.contains(action); }
  void performAction(const std::string& action, outlets::Sender* sender) override {
    lines.push_back(sender == nullptr ? action : action + " by a sender");
  }
  void openAddress(const std::string& address) override { lines.push_back("open " + address); }
  bool isRepairing() override { return repairing; }
  void endRepairAndTerminate() override { lines.emplace_back("end repair"); }
  bool shouldTerminateAfterLastWindowClosed() override { return true; }
  void applicationWillTerminate() override { lines.emplace_back("terminating"); }
  std::string windowFrame() override { return frame; }
  void setWindowFrame(const std::string& newFrame) override { frame = newFrame; }
  outlets::ShortcutKeyOwner* shortcutKeys() override { return hasKeys ? &keys : nullptr; }
  std::optional<std::uint16_t> virtualKeyCode(std::uint32_t scanCode) override {
    return fakekeyboard::keyCode(scanCode);
  }
  std::string version() override { return "2.1"; }

  FakeShortcutKeyOwner keys;
  bool hasKeys = true;
  std::vector<std::string> lines;
  std::set<std::string> unknown;
  std::function<void()> whenLoaded;
  outlets::Connections connections{};
  bool startsUp = true;
  bool repairing = false;
  std::string frame;
};
