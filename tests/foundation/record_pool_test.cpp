// The per-thread block pool behind the library's records and list objects.
#include "foundation/record_pool.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

using Velmor::Detail::kHeldBytesPerThread;
using Velmor::Detail::kLargestPooled;
using Velmor::Detail::PoolAllocate;
using Velmor::Detail::PoolFree;
using Velmor::Detail::PoolHeldBytes;
using Velmor::Detail::PoolRecycles;

class RecordPool : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!PoolRecycles()) {
            GTEST_SKIP() << "blocks go to operator new/delete in this build (AddressSanitizer)";
        }
    }
};

TEST_F(RecordPool, AFreedBlockServesTheNextRequestOfItsSizeClass) {
    void* first = PoolAllocate(40);
    const std::size_t held = PoolHeldBytes();
    PoolFree(first, 40);
    EXPECT_EQ(PoolHeldBytes(), held + 48); // 40 rounds up to 48
    // 33..48 share the class; the block is writable over the whole class.
    void* again = PoolAllocate(48);
    EXPECT_EQ(again, first);
    EXPECT_EQ(PoolHeldBytes(), held);
    static_cast<unsigned char*>(again)[47] = 0xA5;
    // Another class does not take it.
    PoolFree(again, 48);
    void* other = PoolAllocate(64);
    EXPECT_NE(other, again);
    PoolFree(other, 64);
}

TEST_F(RecordPool, LargeBlocksAreNeverHeld) {
    const std::size_t held = PoolHeldBytes();
    void* large = PoolAllocate(kLargestPooled + 1);
    PoolFree(large, kLargestPooled + 1);
    EXPECT_EQ(PoolHeldBytes(), held);
}

TEST_F(RecordPool, AThreadHoldsNoMoreThanItsCap) {
    std::thread worker([] {
        constexpr std::size_t kBlock = 256;
        std::vector<void*> blocks(kHeldBytesPerThread / kBlock + 100);
        for (void*& block : blocks) {
            block = PoolAllocate(kBlock);
        }
        for (void* block : blocks) {
            PoolFree(block, kBlock);
        }
        EXPECT_EQ(PoolHeldBytes(), kHeldBytesPerThread);
    });
    worker.join();
}

TEST_F(RecordPool, ABlockMadeOnOneThreadIsFreedAndReusedOnAnother) {
    void* made = nullptr;
    std::thread maker([&made] { made = PoolAllocate(96); });
    maker.join(); // the maker's own cache is gone now
    std::thread user([made] {
        PoolFree(made, 96);
        EXPECT_EQ(PoolHeldBytes(), 96u);
        EXPECT_EQ(PoolAllocate(96), made);
        PoolFree(made, 96); // held until this thread ends, then given back
    });
    user.join();
}

} // namespace
