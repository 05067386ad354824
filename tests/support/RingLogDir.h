// A private RINGLOGDIR for a test process, so that no test writes a ring file into the default
// directory or shares one with a test running beside it.
//
//   TestSupport::RingLogDir dir;   // a fresh temporary directory, RINGLOGDIR pointing at it,
//                                  // both undone when `dir` ends
//
// For a whole test binary, register the environment once in one of its sources:
//
//   MLAGVXLAN_TEST_RINGLOGDIR();
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

namespace TestSupport {

class RingLogDir {
 public:
  RingLogDir() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "mlagvxlan-rl-XXXXXX").string();
    if (!::mkdtemp(tmpl.data())) throw std::runtime_error("cannot make a temporary directory from " + tmpl);
    path_ = tmpl;
    if (char const* old = std::getenv("RINGLOGDIR")) previous_ = old;
    ::setenv("RINGLOGDIR", path_.c_str(), 1);
  }
  ~RingLogDir() {
    if (previous_) {
      ::setenv("RINGLOGDIR", previous_->c_str(), 1);
    } else {
      ::unsetenv("RINGLOGDIR");
    }
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  RingLogDir(RingLogDir const&) = delete;
  RingLogDir& operator=(RingLogDir const&) = delete;

  std::string const& path() const noexcept { return path_; }

 private:
  std::string path_;
  std::optional<std::string> previous_;
};

class RingLogDirEnvironment : public ::testing::Environment {
 public:
  void SetUp() override { dir_.emplace(); }
  void TearDown() override { dir_.reset(); }

 private:
  std::optional<RingLogDir> dir_;
};

}  // namespace TestSupport

#define MLAGVXLAN_TEST_RINGLOGDIR()                                                       \
  [[maybe_unused]] static ::testing::Environment* const mlagvxlanRingLogDirEnvironment_ = \
      ::testing::AddGlobalTestEnvironment(new ::TestSupport::RingLogDirEnvironment)
