// A test with a file root of its own.
#pragma once

#include "fakes/fake_deployment.h"
#include "trial/support/temporary_folder.h"

#include <gmock/gmock.h>

namespace support {

class RootTest : public testing::Test {
  protected:
    RootTest() { fakes::deployment::setRoot(root.path().string()); }

    ~RootTest() override { fakes::deployment::setRoot(""); }

    trial::TemporaryFolder root;
};

inline std::ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

} // namespace support
