#include "common/file/IGInodeSet.h"

#include <gmock/gmock.h>

#include "common/base/IGGuards.h"

namespace {

struct stat file(dev_t device, ino_t inode) {
    struct stat st = {};
    st.st_dev = device;
    st.st_ino = inode;
    return st;
}

TEST(IGInodeSet, KnowsWhatWasAdded) {
    LocalPool pool;
    InodeSet set(pool.get());
    EXPECT_EQ(set.add(file(1, 2)), InodeSet::Added::NEW);
    EXPECT_EQ(set.add(file(1, 2)), InodeSet::Added::KNOWN);
}

TEST(IGInodeSet, DistinguishesEqualInodesOfDifferentDevices) {
    LocalPool pool;
    InodeSet set(pool.get());
    EXPECT_EQ(set.add(file(1, 2)), InodeSet::Added::NEW);
    EXPECT_EQ(set.add(file(2, 2)), InodeSet::Added::NEW);
    EXPECT_EQ(set.add(file(2, 1)), InodeSet::Added::NEW);
}

TEST(IGInodeSet, KeepsEverythingWhileItGrows) {
    LocalPool pool;
    InodeSet set(pool.get());
    for (ino_t inode = 1; inode <= 10000; ++inode) {
        ASSERT_EQ(set.add(file(7, inode)), InodeSet::Added::NEW) << inode;
    }
    for (ino_t inode = 1; inode <= 10000; ++inode) {
        ASSERT_EQ(set.add(file(7, inode)), InodeSet::Added::KNOWN) << inode;
    }
}

}  // namespace
