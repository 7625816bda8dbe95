#include "channel_layout.h"

#include <algorithm>

namespace audiomw_tool {

ChannelLayout::ChannelLayout(const std::vector<int>& groupSizes) {
    for (int size : groupSizes) {
        m_group.insert(m_group.end(), size > 0 ? size : 0, m_next);
        ++m_next;
    }
}

bool ChannelLayout::IsGroup(int offset, int count) const {
    int end = offset + count;
    if (count <= 0 || offset < 0 || end > Channels()) {
        return false;
    }
    int id = m_group[offset];
    for (int i = offset; i < end; ++i) {
        if (m_group[i] != id) {
            return false;
        }
    }
    return (offset == 0 || m_group[offset - 1] != id) && (end == Channels() || m_group[end] != id);
}

std::string ChannelLayout::Describe() const {
    std::string text;
    for (int start = 0; start < Channels();) {
        int end = start;
        while (end + 1 < Channels() && m_group[end + 1] == m_group[start]) {
            ++end;
        }
        text += "[" + std::to_string(start) + (end > start ? "-" + std::to_string(end) : "") + "]";
        start = end + 1;
    }
    return text;
}

void ChannelLayout::Relabel(int offset, int count) {
    for (int i = offset; i < offset + count; ++i) {
        m_group[i] = m_next;
    }
    ++m_next;
}

void ChannelLayout::Split(int offset, int a, int b) {
    Relabel(offset, a);
    Relabel(offset + a, b);
}

void ChannelLayout::Merge(int offset, int a, int b) {
    Relabel(offset, a + b);
}

bool ChannelLayout::Swap(const std::vector<int>& map, int* scattered) {
    // A group stays whole when each of its blocks lands right after the previous one.
    std::vector<bool> broken(m_next, false);
    bool together = true;
    for (int i = 1; i < Channels(); ++i) {
        if (m_group[i - 1] == m_group[i] && map[i] != map[i - 1] + 1 && !broken[m_group[i]]) {
            broken[m_group[i]] = true;
            if (together) {
                *scattered =
                    static_cast<int>(std::find(m_group.begin(), m_group.end(), m_group[i]) - m_group.begin());
            }
            together = false;
        }
    }
    std::vector<int> moved(m_group.size());
    for (int i = 0; i < Channels(); ++i) {
        // The blocks of a broken group no longer form a group: each stands alone.
        moved[map[i]] = broken[m_group[i]] ? m_next++ : m_group[i];
    }
    m_group = moved;
    return together;
}

}  // namespace audiomw_tool
