#pragma once
// The channel layout list of a channel group: one entry per leaf channel, saying where its
// value lies in a record, how its bits are read and how the value is converted.
#include "mdf/record_layout.h"

namespace qm {

class ChannelGroupBlock;

// Empties the group's cached list and builds it anew from its channels, composition children
// in place of their parent; returns the list. Channels of an unsupported data type are read as
// big-endian unsigned integers, with a warning each time the list is built.
ChannelLayoutList& channelLayouts(ChannelGroupBlock& group);

}  // namespace qm
