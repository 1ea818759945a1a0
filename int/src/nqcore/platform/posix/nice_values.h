// Process classes and thread priorities as nice values.
//
// The kernel has one number for each thread and none for the process. Here a class is the nice value that the threads
// of the process start from, and a thread's priority its distance from that; the two extremes are the ends of the scale,
// whatever the class.
//
//     class        Idle 14, BelowNormal 7, Normal 0, AboveNormal -5, High -10, Realtime -15
//     priority     Lowest +4, BelowNormal +2, Normal 0, AboveNormal -2, Highest -4; Idle 19, TimeCritical -20
//
// What is found between these values counts as the nearest of them. A scale keeps such a value for that label from then
// on, so that a guard brings back what it found, not what the table says.
#pragma once

#include <algorithm>
#include <cstdlib>

namespace nqcore::platform {

inline constexpr int s_lowestNice = -20;  // most favoured
inline constexpr int s_highestNice = 19;

struct NiceRow {
    long value;
    int nice;
};

/// Labels and their nice values. On equal distance the earlier row counts.
template <unsigned Rows>
struct NiceScale {
    NiceRow rows[Rows];

    [[nodiscard]] constexpr const NiceRow* find(long value) const noexcept {
        const NiceRow* const row = std::find_if(rows, rows + Rows, [=](const NiceRow& r) { return r.value == value; });
        return row == rows + Rows ? nullptr : row;
    }
    [[nodiscard]] constexpr const NiceRow& nearest(int nice) const noexcept {
        return *std::min_element(rows, rows + Rows, [=](const NiceRow& a, const NiceRow& b) {
            return distance(a.nice, nice) < distance(b.nice, nice);
        });
    }
    /// `nice` stands for the nearest label from now on.
    constexpr void keep(int nice) noexcept { rows[&nearest(nice) - rows].nice = nice; }

    static constexpr int distance(int a, int b) noexcept { return a < b ? b - a : a - b; }
};

using ClassScale = NiceScale<6>;
using DistanceScale = NiceScale<5>;

inline constexpr ClassScale s_classes = {{{0x20, 0}, {0x4000, 7}, {0x8000, -5}, {0x80, -10}, {0x40, 14}, {0x100, -15}}};
inline constexpr DistanceScale s_distances = {{{0, 0}, {-1, 2}, {1, -2}, {-2, 4}, {2, -4}}};

inline constexpr long s_idlePriority = -15;
inline constexpr long s_timeCriticalPriority = 15;

[[nodiscard]] constexpr int clamp_nice(int nice) noexcept { return std::clamp(nice, s_lowestNice, s_highestNice); }

/// The nice value of a thread of priority `priority` in a process whose class has the nice value `base`.
///
/// Returns  false when there is no such priority.
[[nodiscard]] constexpr bool nice_of_priority(long priority, int base, const DistanceScale& distances,
                                              int& nice) noexcept {
    if (priority == s_idlePriority || priority == s_timeCriticalPriority) {
        nice = priority == s_idlePriority ? s_highestNice : s_lowestNice;
        return true;
    }
    const NiceRow* const row = distances.find(priority);
    if (row != nullptr) {
        nice = clamp_nice(base + row->nice);
    }
    return row != nullptr;
}

/// Whether `nice` is an end of the scale, and not where a distance from `base` leads.
[[nodiscard]] constexpr bool is_extreme(int nice, int base, const DistanceScale& distances) noexcept {
    return (nice == s_lowestNice || nice == s_highestNice) && distances.nearest(nice - base).nice != nice - base;
}

/// The reverse. Where the scale ends and several priorities have one value, the nearest to normal counts.
[[nodiscard]] constexpr long priority_of_nice(int nice, int base, const DistanceScale& distances) noexcept {
    if (is_extreme(nice, base, distances)) {
        return nice == s_highestNice ? s_idlePriority : s_timeCriticalPriority;
    }
    return distances.nearest(nice - base).value;
}

/// Where a change of the class from `base` to `newBase` takes a thread.
[[nodiscard]] constexpr int moved_nice(int nice, int base, int newBase, const DistanceScale& distances) noexcept {
    return is_extreme(nice, base, distances) ? nice : clamp_nice(nice - base + newBase);
}

}  // namespace nqcore::platform
