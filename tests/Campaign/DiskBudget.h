#pragma once

#include <atomic>
#include <cstdint>

namespace quillo::test {

/// The memory page that a test shares with programs under FullDiskPreload: how much their disk still takes.
struct DiskBudget {
    /// Bytes that files below the folder may still grow by; negative: the disk is not full.
    std::atomic<int64_t> remaining{-1};
    std::atomic<int64_t> refusals{0};
    /// When a file of audio (".pcm") was refused first, in nanoseconds of CLOCK_MONOTONIC; 0: not yet.
    std::atomic<int64_t> audioRefusedAt{0};
};
static_assert(std::atomic<int64_t>::is_always_lock_free);

/// Environment variables: the file that holds the page, and the folder that the disk consists of.
constexpr const char* diskBudgetFile = "QUILLO_TEST_DISK_BUDGET";
constexpr const char* diskBudgetFolder = "QUILLO_TEST_DISK_FOLDER";

} // namespace quillo::test
