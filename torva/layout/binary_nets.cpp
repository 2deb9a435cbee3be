// The net records of the binary form: the begin and end records of media and
// conductors, which file the solids between them or make a net of the
// pending ones.
#include <deque>
#include <string>
#include <vector>

#include "torva/foundation/logger.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/internal/binary_fields.h"

namespace torva {

namespace {

using internal::binary_payload_fits;

// Moves the pending shapes into blocks of a new net and links them; the
// second way of writing a conductor or medium.
template <class Net, class Block, class MakeBlock>
void close_pending(std::deque<Net>& nets, std::deque<Block>& blocks, const std::vector<shape_t>& shapes,
                   Net net, MakeBlock make_block) {
  const std::size_t first = blocks.size();
  for (std::size_t k = 0; k < shapes.size(); ++k) make_block(k);
  nets.push_back(std::move(net));
  Net& stands = nets.back();
  for (std::size_t j = first; j < blocks.size(); ++j) {
    stands.blocks.push_back(&blocks[j]);
    blocks[j].net = &stands;
  }
}

}  // namespace

bool Cap3dParser::parseBinMediumBegin(const char*& cursor, short payload_size) {
  if (!binary_payload_fits(payload_size, 4)) return false;
  const float diel = readFloat(cursor);
  std::string name = readString(cursor, static_cast<short>(payload_size - 4));
  if (dump_enabled) (*dump)("<medium>\n\tname %s\n", name.empty() ? "noname" : name.c_str());
  layout.medium_nets.emplace_back(std::move(name), diel);
  state |= in_medium;
  pending_shapes.clear();
  pending_side_tans.clear();
  pending_names.clear();
  pending_layers.clear();
  return true;
}

bool Cap3dParser::parseBinMediumEnd(const char*& cursor, short payload_size) {
  if (!binary_payload_fits(payload_size, 4)) return false;
  const float diel = readFloat(cursor);
  std::string name = readString(cursor, static_cast<short>(payload_size - 4));
  if (!(state & in_medium) && !pending_shapes.empty()) {
    close_pending(layout.medium_nets, layout.medium_blocks, pending_shapes, medium_net(std::move(name), diel),
                  [&](std::size_t k) { layout.medium_blocks.emplace_back(pending_shapes[k], 0.0); });
    pending_shapes.clear();
  }
  state &= 0xff000000u;
  pending_names.clear();
  pending_layers.clear();
  if (dump_enabled) (*dump)("\tdiel %.6f\n</medium>\n", double(diel));
  return true;
}

bool Cap3dParser::parseBinConductorBegin(const char*& cursor, short payload_size) {
  if (!binary_payload_fits(payload_size, 1)) return false;
  const bool floating = readChar(cursor) != 0;
  std::string name = readString(cursor, static_cast<short>(payload_size - 1));
  if (dump_enabled) {
    (*dump)("<conductor>\n\tname %s\n", name.c_str());
    if (floating) dump->print("\tfloating\n");
  }
  layout.wire_nets.emplace_back(std::move(name), floating);
  state |= in_conductor;
  pending_shapes.clear();
  pending_side_tans.clear();
  pending_names.clear();
  pending_layers.clear();
  return true;
}

bool Cap3dParser::parseBinConductorEnd(const char*& cursor, short payload_size) {
  if (!binary_payload_fits(payload_size, 1)) return false;
  const bool floating = readChar(cursor) != 0;
  std::string name = readString(cursor, static_cast<short>(payload_size - 1));
  if (!(state & in_conductor) && !pending_shapes.empty()) {
    // Names are taken whole and layers as they stand: no "@" and no layer list.
    close_pending(layout.wire_nets, layout.wire_blocks, pending_shapes, wire_net(std::move(name), floating),
                  [&](std::size_t k) {
                    layout.wire_blocks.emplace_back(pending_shapes[k], pending_names[k], pending_layers[k]);
                  });
    for (wire_block* b : layout.wire_nets.back().blocks) b->floating = floating;
    pending_shapes.clear();
  }
  state &= 0xff000000u;
  pending_names.clear();
  pending_layers.clear();
  if (dump_enabled) dump->print("</conductor>\n");
  return true;
}

}  // namespace torva
