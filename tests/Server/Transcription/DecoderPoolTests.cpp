#include "Transcription/PocketSphinx/DecoderPool.h"

#include <gtest/gtest.h>

#include <future>

namespace quillo::server::test {
namespace {

ModelFiles model() { return ModelFiles::in("/usr/share/pocketsphinx/model/en-us", true); }

TEST(DecoderPool, UnloadsWhatNobodyUses) {
    std::promise<void> unloaded;
    DecoderPool pool(model(), 1, std::chrono::milliseconds(1), [&] { unloaded.set_value(); });
    {
        const auto slot = pool.reserve();
        slot->decoder();
        EXPECT_EQ(pool.idle(), 0U);
    }
    ASSERT_EQ(unloaded.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_EQ(pool.idle(), 0U);
}

TEST(DecoderPool, LendsADecoderAgainInsteadOfLoadingAnother) {
    DecoderPool pool(model(), 2, std::chrono::hours(1));
    const Decoder* first = &pool.reserve()->decoder();
    EXPECT_EQ(pool.idle(), 1U);
    const auto slot = pool.reserve();
    EXPECT_EQ(&slot->decoder(), first);
    const auto second = pool.reserve();
    EXPECT_NE(second, nullptr);
    EXPECT_EQ(pool.reserve(), nullptr);
}

TEST(DecoderPool, ReportsAModelThatCannotBeLoaded) {
    ModelFiles files = model();
    files.acoustic = "/nowhere";
    DecoderPool pool(files, 1, std::chrono::hours(1));
    const auto slot = pool.reserve();
    EXPECT_THROW(slot->decoder(), RecogniserUnavailable);
}

} // namespace
} // namespace quillo::server::test
