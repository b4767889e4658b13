// The neural-runtime boundary: shaped arrays and reused output buffers. The scripted runtime's
// networks run end to end in the manager's suite, its refusals in the model set's.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/speech/SpeechTestSupport.h"

namespace speech {
namespace {

using ::testing::ElementsAre;

TEST(RuntimeArraysTest, BadLayoutsAreRefusedAndOutputsNotWrittenReadAsAbsent) {
    // A (2, 3) view over storage laid out column by column; layouts past their data are refused.
    auto array = MultiArray::strided({2, 3}, {1, 2}, {0, 10, 1, 11, 2, 12});
    EXPECT_EQ(array.flat(4), 11.0f);  // row-major position 4 is (1, 1)
    EXPECT_THROW(array.at({2, 0}), std::out_of_range);
    EXPECT_THROW(MultiArray::strided({2, 3}, {3, 1}, std::vector<float>(5)), std::invalid_argument);
    EXPECT_THROW(MultiArray({2, -1}), std::invalid_argument);
    EXPECT_THROW(MultiArray::of({2, 2}, {1, 2, 3}), std::invalid_argument);

    // An output of an earlier run is not read as this run's, but its buffer is reused.
    int run = 0;
    testing::FunctionModel model({}, [&](const FeatureMap&, FeatureMap& out) {
        out.prepare("always", {2}).storage()[0] = 1;
        if (run++ == 0) out.prepare("firstOnly", {1});
    });
    FeatureMap outputs;
    model.predict({}, outputs);
    const float* buffer = outputs.find("always")->storage().data();
    model.predict({}, outputs);
    EXPECT_THAT(outputs.names(), ElementsAre("always"));
    EXPECT_EQ(outputs.find("always")->storage().data(), buffer);
}

}  // namespace
}  // namespace speech
