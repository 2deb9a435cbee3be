// The walk through the compact index against the walk through the plain grid
// it copies: the index answers every query as the pair does, so one seed must
// give the same walks and the same matrix, bit for bit, on any number of
// threads.
#include <gtest/gtest.h>

#include "torva/extract/extractor.h"
#include "torva/layout/generator.h"
#include "torva_testing/log_capture.h"

namespace torva {
namespace {

extract_result run(int strategy, int threads, std::string& log_text) {
  testing::log_capture log;
  generator_params g;
  g.kind = layout_kind::crossing;
  g.blocks = 300;
  g.layers = 3;
  g.polygon_share = 0.1;
  g.cylinder_share = 0.1;
  g.seed = 3;
  circuit_layout layout;
  build_circuit(generate_layout(g), layout);
  layout.data.boundary = 1;
  extract_options o;
  o.spacemgr_type = strategy;
  o.threads = threads;
  o.max_walks = 30000;
  o.self_precision = 1e-9;
  o.seed = 17;
  o.masters = {layout.data.wire_nets[layout.data.wire_nets.size() / 2].name};
  extract_result r = extract(layout, o);
  log_text = log.info();
  return r;
}

TEST(CompactWalk, GivesThePlainGridsMatrixBitForBit) {
  std::string automatic_log, plain_log;
  const extract_result plain = run(9, 2, plain_log);
  EXPECT_EQ(plain_log.find("compact index"), std::string::npos);
  for (int threads : {1, 2}) {
    const extract_result automatic = run(-1, threads, automatic_log);
    EXPECT_NE(automatic_log.find("search: the compact index"), std::string::npos);
    ASSERT_EQ(automatic.spacemgr_type, 9u);
    ASSERT_EQ(automatic.matrix.size(), plain.matrix.size());
    EXPECT_EQ(automatic.walks, plain.walks);
    EXPECT_EQ(automatic.hops, plain.hops);
    for (std::size_t i = 0; i < plain.matrix.size(); ++i) {
      EXPECT_EQ(automatic.matrix[i], plain.matrix[i]) << "row " << i << ", threads " << threads;
      EXPECT_EQ(automatic.stderr_matrix[i], plain.stderr_matrix[i]) << "row " << i << ", threads " << threads;
    }
  }
}

}  // namespace
}  // namespace torva
