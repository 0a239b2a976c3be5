// A queue that keeps the latest entries and counts those that it had to drop.
#ifndef MARVANE_SIMULATOR_TERMS_BOUNDED_QUEUE_H
#define MARVANE_SIMULATOR_TERMS_BOUNDED_QUEUE_H

#include <algorithm>
#include <cstddef>
#include <deque>
#include <utility>
#include <vector>

namespace simulator {

template <class Entry, std::size_t limit>
class BoundedQueue {
public:
    void Push(Entry entry) {
        entries.push_back(std::move(entry));
        if (entries.size() <= limit) return;
        entries.pop_front();
        ++dropped;
    }

    /// The oldest ones, at most count.
    std::vector<Entry> Take(std::size_t count = limit) {
        const auto end =
            entries.begin() + static_cast<std::ptrdiff_t>(std::min(count, entries.size()));
        std::vector<Entry> taken(entries.begin(), end);
        entries.erase(entries.begin(), end);
        return taken;
    }

    std::size_t Size() const { return entries.size(); }
    std::size_t Dropped() const { return dropped; }

private:
    std::deque<Entry> entries;
    std::size_t dropped = 0;
};

}  // namespace simulator

#endif
