#pragma once

#include "workstation/Volume.h"

namespace workstation {

/// A volume for one test: made in a fresh folder (under TMPDIR, else /tmp), and taken away, locked files and
/// all, at the end. Errors as makeVolume.
class TemporaryVolume {
 public:
  explicit TemporaryVolume(const Plan& plan);
  ~TemporaryVolume();
  TemporaryVolume(const TemporaryVolume&) = delete;
  TemporaryVolume& operator=(const TemporaryVolume&) = delete;

  [[nodiscard]] const Volume& volume() const { return volume_; }
  operator const Volume&() const { return volume_; }  // NOLINT: implicit, it is passed on as the volume it is

 private:
  Volume volume_;
};

/// Takes a volume away, with immutable files in it. Errors are ignored: what cannot go stays.
void removeVolume(const Volume& volume);

}  // namespace workstation
