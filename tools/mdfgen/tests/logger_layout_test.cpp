#include "tools/mdfgen/logger_layout.h"

#include <gtest/gtest.h>

#include "tools/mdfgen/mdf_tree.h"
#include "tools/mdfgen/tests/generated_file.h"

namespace qm {
namespace {

std::vector<std::string> namesOf(const ChannelGroupInfo& group) {
  std::vector<std::string> names;
  for (const ChannelInfo& channel : group.channels) names.push_back(channel.name);
  return names;
}

TEST(LoggerLayout, UnsortedGroupHoldsTheBusGroupsWithPayloadsRightBehindTheCanFrames) {
  MdfTree tree;
  ProblemList problems;
  readMdfTree(MemorySource(test::generatedFile(30 * 1024, 6)), tree, problems);
  ASSERT_TRUE(problems.empty());
  ASSERT_EQ(tree.data_groups.size(), 1u);
  EXPECT_EQ(tree.data_groups[0].record_id_size, 1);
  const std::vector<ChannelGroupInfo>& groups = tree.data_groups[0].groups;
  ASSERT_EQ(groups.size(), 4u);

  EXPECT_EQ(groups[0].acquisition_name, "CAN_DataFrame");
  EXPECT_EQ(namesOf(groups[0]),
            (std::vector<std::string>{"Timestamp", "CAN_DataFrame.BusChannel", "CAN_DataFrame.ID", "CAN_DataFrame.IDE",
                                      "CAN_DataFrame.DLC", "CAN_DataFrame.DataLength", "CAN_DataFrame.Dir",
                                      "CAN_DataFrame.EDL", "CAN_DataFrame.BRS", "CAN_DataFrame.ESI",
                                      "CAN_DataFrame.DataBytes"}));
  const ChannelInfo& data_bytes = groups[0].channels.back();
  EXPECT_EQ(data_bytes.channel_type, 1);
  EXPECT_EQ(data_bytes.data_type, 10);
  EXPECT_EQ(data_bytes.data_link, groups[1].offset);  // the very next group in the chain
  EXPECT_TRUE(groups[1].variableLength());
  EXPECT_TRUE(groups[1].channels.empty());

  EXPECT_EQ(groups[2].acquisition_name, "CAN_RemoteFrame");
  EXPECT_EQ(groups[3].acquisition_name, "LIN_Frame");
  EXPECT_EQ(namesOf(groups[3]), (std::vector<std::string>{"Timestamp", "LIN_Frame.BusChannel", "LIN_Frame.ID",
                                                          "LIN_Frame.Dir", "LIN_Frame.ReceivedDataByteCount",
                                                          "LIN_Frame.DataLength", "LIN_Frame.DataBytes"}));
  for (const ChannelGroupInfo& group : groups) {
    SCOPED_TRACE(group.record_id);
    EXPECT_EQ(group.source_type, 2);  // bus
    EXPECT_EQ(group.bus_type, group.acquisition_name == "LIN_Frame" ? 3 : 2);
    EXPECT_EQ(group.cycle_count, 0u);      // left for the finalization
    EXPECT_EQ(group.invalidation_bytes, 0u);
    if (!group.channels.empty()) {
      EXPECT_EQ(group.channels[0].channel_type, 2);  // master first
    }
  }
}

TEST(LoggerLayout, IdentificationTellsFinalizedFromUnfinalized) {
  std::string logger = identificationBlock(false);
  std::string finalized = identificationBlock(true);
  ASSERT_EQ(logger.size(), 64u);
  EXPECT_EQ(logger.substr(0, 8), "UnFinMF ");
  EXPECT_EQ(test::fieldAt(logger, 60, 2), kLoggerUnfinalizedFlags);
  EXPECT_EQ(test::fieldAt(logger, 62, 2), 0u);
  EXPECT_EQ(finalized.substr(0, 8), "MDF     ");
  EXPECT_EQ(test::fieldAt(finalized, 60, 4), 0u);
  EXPECT_EQ(test::fieldAt(finalized, 28, 2), 411u);
  EXPECT_EQ(identificationBlock(false, true).substr(0, 8), "Damaged ");
}

}  // namespace
}  // namespace qm
