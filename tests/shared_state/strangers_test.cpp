/**
 * @file strangers_test.cpp
 * @brief Sets and segments that others have under our keys, that a creator left unfinished, and
 * headers that make no sense.
 */
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>

#include "children.h"
#include "loaded_library.h"
#include "outside_view.h"
#include "system_calls.h"

namespace {

class StrangersTest : public SharedStateTest {};

TEST_F(StrangersTest, SetIsJoinedOrFinishedOrLeftAloneAsItsCreatorLeftIt) {
    enum Fate { kJoined, kFinished, kLeftAlone };
    const struct {
        const char* what;
        std::vector<int> values;
        bool used;
        Fate fate;
    } cases[] = {
        // clang-format off
        {"in use",                    {3, 1, 1, 1, 1, 1, 0, 1, 0, 1, 1}, true,  kJoined},
        {"nothing raised",            {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, false, kFinished},
        {"some raised",               {0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0}, false, kFinished},
        {"all raised",                {0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}, false, kFinished},
        {"too few, used",             {1, 1, 1, 1, 1, 1, 1, 1, 1, 1},    true,  kLeftAlone},
        {"too few, never used",       {0, 0},                            false, kLeftAlone},
        {"more, never used",          {0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, false, kLeftAlone},
        {"users, but never used",     {7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, false, kLeftAlone},
        {"other values, never used",  {0, 1, 1, 9, 0, 0, 0, 0, 0, 0, 0}, false, kLeftAlone},
        {"a gap between those raised", {0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0}, false, kLeftAlone},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const int set = MakeSet(c.values, c.used);
        EXPECT_EQ(ServedToAnother(c.fate != kJoined), c.fate == kLeftAlone ? 0 : kAll);
        EXPECT_EQ(FindSet(), c.fate == kFinished ? -1 : set);
        EXPECT_EQ(SemaphoreValues(set), c.fate == kFinished ? std::vector<int>() : c.values);
        EXPECT_EQ(FindSegment(), -1);
        Sweep();
    }
}

TEST_F(StrangersTest, SegmentThatIsNotOursIsLeftAlone) {
    const struct {
        const char* what;
        void (*change)(ByteString&);
    } cases[] = {
        // clang-format off
        {"other name",             [](ByteString& s) { s[0] = 'B'; }},
        {"longer name",            [](ByteString& s) { s[15] = 'x'; }},
        {"other id",               [](ByteString& s) { s[52] = 1; }},
        {"other lock",             [](ByteString& s) { s[56] = 'x'; }},
        {"other lock index",       [](ByteString& s) { s[112] = 1; }},
        {"more units than it has", [](ByteString& s) { s[128] = 254; }},
        {"too small",              [](ByteString& s) { s.resize(65535); }},
        {"much too small",         [](ByteString& s) { s.assign(100, 0); }},
        {"all ones",               [](ByteString& s) { s.assign(65536, 255); }},
        {"no units, but larger",   [](ByteString& s) { s.assign(65537, 0); }},
        {"no units, but data",     [](ByteString& s) { s.assign(65536, 0); s[65535] = 1; }},
        {"no units, but a name",   [](ByteString& s) { s.assign(65536, 0); s[0] = 'B'; }},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ByteString content = SegmentInUse(1);
        c.change(content);
        const int segment = MakeSegment(content);
        EXPECT_EQ(ServedToAnother(), 0);
        ASSERT_EQ(FindSegment(), segment) << "removed";
        EXPECT_EQ(FirstDifference(SegmentView().All(), content), "");
        EXPECT_EQ(FindSet(), -1);
        Sweep();
    }
}

TEST_F(StrangersTest, SegmentThatIsUnfinishedIsFinished) {
    // Bytes of the header are there or not, from the front or in any other order, but for the
    // number of units.
    const ByteString whole = FreshSegment();
    const ByteString empty(whole.size(), 0);
    ByteString halfIdentity = empty;
    std::copy_n(whole.begin(), 90, halfIdentity.begin());
    ByteString allButCount = whole;
    PutNumber(allButCount, 128, 0, 8);
    ByteString nameless = whole;  // left by an allocation
    PutBlock(nameless, 0, "", 1, 34);
    PutBlock(nameless, 34, "", 0, 475);
    for (const ByteString& content : {empty, halfIdentity, allButCount, whole, nameless}) {
        MakeSegment(content);
        EXPECT_EQ(ServedToAnother(), kAll);
        ExpectNothingIsLeft();
    }
}

TEST_F(StrangersTest, WhatAnArenaHasIsServedAndNothingBeside) {
    // Count and size of the identity are not compared.
    ByteString start = FreshSegment();
    PutNumber(start, 108, 3, 4);
    PutNumber(start, 116, 1, 4);
    struct Block {
        unsigned unit;
        const char* name;
        unsigned units;
    };
    const struct {
        const char* what;
        std::vector<Block> blocks;
        int served;
    } cases[] = {
        // clang-format off
        {"no room",         {{0, "Theirs", 509}}, 0},
        {"room for the buffers and one copy", {{0, "", 36}, {36, "Theirs", 473}}, kOnCopies},
        {"up to the end",   {{0, "Theirs", 507}, {507, "OutOffCopies", 2}}, kOffCopies},
        {"beyond the end",  {{0, "Theirs", 508}, {508, "OutOffCopies", 1}}, 0},
        {"too few entries", {{0, "OutOffCopies", 1}, {1, "Theirs", 508}}, 0},
        {"longer name",     {{0, "OutOffCopiesToo", 2}, {2, "Theirs", 507}}, 0},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ByteString content = start;
        for (const auto& [unit, name, units] : c.blocks)
            PutBlock(content, unit, name, *name == 0 ? 0 : 1, units);
        const SegmentView view(MakeSegment(content));
        EXPECT_EQ(ServedToAnother(true, system_calls::AttachBetweenGuards), c.served);
        if (c.served == kOnCopies) {
            EXPECT_EQ(OnCopy(1), ByteString({0, 1, 0, 0, 0})) << "both";
        }
        EXPECT_EQ(FindSet(), -1);
        Sweep();
    }
}

TEST_F(StrangersTest, NoBitOfTheHeadersMakesALoadReadOutsideOrHang) {
    ByteString whole = SegmentInUse(1);
    PutBlock(whole, 40, "Other", 1, 469);
    // Of the arena every bit but of names, whose bits all mean the same; of blocks the first byte
    // of the name, the id, and all of the use count and the units.
    std::vector<std::size_t> bytes = {0, 14, 49, 56, 105};
    for (std::size_t byte = 50; byte < 136; ++byte)
        if (byte < 56 || byte >= 106) bytes.push_back(byte);
    for (const std::size_t unit : {0, 34, 36, 38, 40}) {
        for (const std::size_t byte : {0, 49, 52, 55, 116, 119, 120, 121, 122, 123, 124, 127})
            bytes.push_back(136 + 128 * unit + byte);
    }
    const InSharedMemory<std::atomic<std::size_t>> place;
    const auto loadWithEachBitChanged = [&] {
        system_calls::AttachBetweenGuards();
        for (const std::size_t byte : bytes) {
            for (unsigned bit = 0; bit < 8; ++bit) {
                *place = 8 * byte + bit;
                ByteString content = whole;
                content[byte] ^= static_cast<std::uint8_t>(1U << bit);
                MakeSegment(content);
                alarm(20);
                UseEverything(false);
                if (HasFailure() || FindSet() != -1) return 1;
                Sweep();  // a header that is a stranger's now stays as it is
            }
        }
        return 0;
    };
    EXPECT_EQ(StatusOf(loadWithEachBitChanged), 0)
        << "bit " << *place % 8 << " of byte " << *place / 8;
}

}  // namespace
