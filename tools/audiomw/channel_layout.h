// The channel blocks of a stream buffer and how they are grouped: which consecutive
// blocks hold one interleaved group. Channel nodes change the grouping; the checks
// ask whether a node addresses whole groups.
#ifndef AUDIOMW_TOOL_CHANNEL_LAYOUT_H
#define AUDIOMW_TOOL_CHANNEL_LAYOUT_H

#include <string>
#include <vector>

namespace audiomw_tool {

class ChannelLayout {
  public:
    // Groups of the given sizes, in block order (one per combo member, or one).
    explicit ChannelLayout(const std::vector<int>& groupSizes);

    int Channels() const { return static_cast<int>(m_group.size()); }
    // [offset, offset + count) is exactly one group.
    bool IsGroup(int offset, int count) const;
    // The groups as "[0-3][4]".
    std::string Describe() const;

    // Callers check the ranges first.
    void Split(int offset, int a, int b);
    void Merge(int offset, int a, int b);
    // map: destination block of each source block, a permutation of 0..C-1. Returns
    // false, with *scattered set to the first block of the group, when a group of
    // several blocks does not stay together and in order.
    bool Swap(const std::vector<int>& map, int* scattered);

  private:
    void Relabel(int offset, int count);

    std::vector<int> m_group;  // group number of each block
    int m_next = 0;
};

}  // namespace audiomw_tool

#endif  // AUDIOMW_TOOL_CHANNEL_LAYOUT_H
