// The ring of links.
#include "iv_list.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

namespace {

using namespace iv::internal;

struct Entry {
    list_head list;
    int number;
};

/// The numbers of the entries in the order of a walk.
std::vector<int> numbers(list_head* head) {
    std::vector<int> result;
    for (list_head* link = head->next; link != head; link = link->next) {
        result.push_back(reinterpret_cast<Entry*>(link)->number);
    }
    return result;
}

/// The same, backward.
std::vector<int> numbers_backward(list_head* head) {
    std::vector<int> result;
    for (list_head* link = head->prev; link != head; link = link->prev) {
        result.push_back(reinterpret_cast<Entry*>(link)->number);
    }
    return result;
}

/// A ring of three entries.
class Ring : public ::testing::Test {
  protected:
    Ring() {
        list_init(&head_);
        for (Entry* entry : {&one_, &two_, &three_}) {
            list_add_tail(&entry->list, &head_);
        }
    }

    list_head head_ = {};
    Entry one_ = {{}, 1}, two_ = {{}, 2}, three_ = {{}, 3};
};

TEST(List, LinkHoldsNextBeforePrev) {
    EXPECT_EQ(offsetof(list_head, next), 0u);
    EXPECT_EQ(offsetof(list_head, prev), sizeof(void*));
}

TEST(List, WalkOfAnEmptyListVisitsNothing) {
    list_head head = {nullptr, nullptr};
    list_init(&head);
    EXPECT_EQ(head.next, &head);
    EXPECT_EQ(head.prev, &head);
    EXPECT_TRUE(numbers(&head).empty());
}

TEST_F(Ring, KeepsTheOrderOfInsertion) {
    EXPECT_EQ(numbers(&head_), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(numbers_backward(&head_), (std::vector<int>{3, 2, 1}));
    EXPECT_EQ(head_.prev, &three_.list);
}

TEST_F(Ring, AddLinksBetweenTheGivenNeighbours) {
    Entry between = {{nullptr, nullptr}, 9};
    __list_add(&between.list, &one_.list, &two_.list);
    EXPECT_EQ(numbers(&head_), (std::vector<int>{1, 9, 2, 3}));
    EXPECT_EQ(numbers_backward(&head_), (std::vector<int>{3, 2, 9, 1}));
}

TEST_F(Ring, EntryUnlinkedDuringAWalkIsSkippedLater) {
    std::vector<int> visited;
    for (list_head *link = head_.next, *next = link->next; link != &head_;
         link = next, next = link->next) {
        auto* entry = reinterpret_cast<Entry*>(link);
        visited.push_back(entry->number);
        if (entry == &two_) {
            __list_del(link->prev, link->next);
            link->next = link->prev = nullptr;
        }
    }
    EXPECT_EQ(visited, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(numbers(&head_), (std::vector<int>{1, 3}));
    EXPECT_EQ(numbers_backward(&head_), (std::vector<int>{3, 1}));
}

TEST_F(Ring, UnlinkedEntryKeepsItsLinks) {
    __list_del(two_.list.prev, two_.list.next);
    EXPECT_EQ(two_.list.next, &three_.list);
    EXPECT_EQ(two_.list.prev, &one_.list);
}

TEST(List, UnlinkingTheOnlyEntryLeavesTheHeadAlone) {
    list_head head;
    Entry only = {{}, 1};
    list_init(&head);
    list_add_tail(&only.list, &head);
    __list_del(only.list.prev, only.list.next);
    EXPECT_EQ(head.next, &head);
    EXPECT_EQ(head.prev, &head);
}

} // namespace
