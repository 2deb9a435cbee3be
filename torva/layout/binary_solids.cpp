// The solid records of the binary form: block, polygon and cylinder. They make
// the same shapes as the text form's solids, but file them at once when a
// begin record is open instead of always leaving them pending.
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "torva/foundation/logger.h"
#include "torva/geometry/convex_decomposition.h"
#include "torva/layout/cap3d_parser.h"
#include "torva/layout/internal/binary_fields.h"
#include "torva/layout/internal/block_shape_supply.h"
#include "torva/layout/internal/shapes.h"

namespace torva {

namespace {

using internal::binary_payload_fits;

// Files a finished shape: into the open medium (which drops name and layer),
// else into the open conductor, else into the pending vectors, where the end
// record decides its fate. No side tan is pending in a binary read.
void file_shape(Cap3dParser& p, shape_t&& shape, const std::string& name, short layer) {
  // The shape is moved, not copied, into its block: a copy would allocate its
  // two piece lists again, the main cost of a binary read.
  circuit_layout::raw& raw = p.layout;
  if ((p.state & Cap3dParser::in_medium) && !raw.medium_nets.empty()) {
    medium_net& net = raw.medium_nets.back();
    medium_block& block = raw.medium_blocks.emplace_back();
    static_cast<shape_t&>(block) = std::move(shape);
    net.blocks.push_back(&block);
    block.net = &net;
  } else if ((p.state & Cap3dParser::in_conductor) && !raw.wire_nets.empty()) {
    wire_net& net = raw.wire_nets.back();
    wire_block& block = raw.wire_blocks.emplace_back();
    static_cast<shape_t&>(block) = std::move(shape);
    block.name = name;
    block.layer = layer;
    net.blocks.push_back(&block);
    block.net = &net;
    block.floating = net.floating;
  } else {
    p.pending_shapes.push_back(std::move(shape));
    p.pending_names.push_back(name);
    p.pending_layers.push_back(layer);
  }
}

void dump_name(sea::writer& out, const std::string& name) {
  if (!name.empty()) out("\t\tname %s\n", name.c_str());
}

}  // namespace

bool Cap3dParser::parseBinBlock(const char*& cursor, short payload_size) {
  if (!binary_payload_fits(payload_size, 50)) return false;
  const char* payload = cursor;
  const cuboid_t box = internal::block_record_box(payload);
  cursor += 48;
  const short layer = readShort(cursor);
  const std::string name = readString(cursor, static_cast<short>(payload_size - 50));

  // The shape may have been made ahead (block_shape_supply.h).
  shape_t shape;
  internal::block_shape_supply* supply = internal::block_shape_supply::installed();
  if (supply == nullptr || !supply->take(payload, box, shape)) shape = make_cuboid_shape(box);
  file_shape(*this, std::move(shape), name, layer);

  if (dump_enabled) {
    double len[3];
    std::memcpy(len, payload + 24, sizeof len);
    sea::writer& out = *dump;
    out.print("\t<block>\n");
    dump_name(out, name);
    out("\t\tlayer %d\n\t\tbasepoint(%.6f,%.6f,%.6f)\n\t\tv1(%.6f,0,0)\n\t\tv2(0,%.6f,0)\n\t\thvector(0,0,%.6f)\n"
        "\t</block>\n",
        layer, double(box.lower[0]), double(box.lower[1]), double(box.lower[2]), len[0], len[1], len[2]);
  }
  return true;
}

bool Cap3dParser::parseBinPoly(const char*& cursor, short payload_size) {
  if (payload_size < 17) return false;
  const double bottom = readDouble(cursor);
  const double height = readDouble(cursor);
  const unsigned count = static_cast<unsigned char>(readChar(cursor));

  // Twice the count, as a signed byte, is the number of coordinates: the
  // format's limit of 63 vertices. Counts of 64 to 127 (and 192 to 255) make
  // it negative, and no list of that size can be made; above 127 it wraps.
  const signed char coordinates = static_cast<signed char>(static_cast<unsigned char>(2 * count));
  if (coordinates < 0) throw std::length_error("cannot create std::vector larger than max_size()");
  const int vertices = coordinates / 2;
  const int fixed = 19 + 16 * vertices;
  if (!binary_payload_fits(payload_size, fixed)) return false;

  nprism_large_t poly;
  poly.points.resize(static_cast<std::size_t>(vertices));
  for (point2& v : poly.points) {
    v[0] = readDouble(cursor);
    v[1] = readDouble(cursor);
  }
  poly.size = poly.points.size();
  poly.bottom = bottom;
  poly.top = bottom + height;
  const short layer = readShort(cursor);
  const std::string name = readString(cursor, static_cast<short>(payload_size - fixed));

  // Decomposed in every state, a medium's polygon too.
  std::vector<nprism_large_t> pieces;
  convex_decomposition(poly, pieces);
  for (const nprism_large_t& piece : pieces) {
    if (const char* complaint = internal::bad_piece_complaint(piece)) {
      std::printf("%s", complaint);  // the binary form reports this line on standard output
      internal::throw_bad_piece(piece);
    }
    file_shape(*this,
               cuboids_only ? internal::make_bounding_cuboid_shape(piece) : internal::make_prism_shape(piece), name,
               layer);
  }

  if (dump_enabled) {
    // The polygon as it was read, not its pieces.
    sea::writer& out = *dump;
    out.print("\t<poly>\n");
    dump_name(out, name);
    out("\t\tlayer %d\n\t\tbasepoint(0,0,%.6f)\n\t\tv1(1,0,0)\n\t\tv2(0,1,0)\n\t\thvector(0,0,%.6f)\n\t\t<coord>\n\t\t\t",
        layer, bottom, height);
    for (const point2& v : poly.points) out("(%.6f,%.6f)", double(v[0]), double(v[1]));
    out.print("\n\t\t</coord>\n\t</poly>\n");
  }
  return true;
}

bool Cap3dParser::parseBinCylinder(const char*& cursor, short payload_size) {
  if (!binary_payload_fits(payload_size, 42)) return false;
  point3 center;
  for (int c = 0; c < 3; ++c) center[c] = readDouble(cursor);
  const double radius = readDouble(cursor);
  const double half_height = readDouble(cursor);
  const short layer = readShort(cursor);
  const std::string name = readString(cursor, static_cast<short>(payload_size - 42));

  file_shape(*this,
             cuboids_only ? internal::make_equal_area_cuboid_shape(center, radius, half_height)
                          : internal::make_cylinder_shape(cylinder_t{center, radius, half_height}),
             name, layer);

  if (dump_enabled) {
    // The radius line gives the square's half side under cuboids_only, and
    // the height line the half height: such a dump does not read back to the
    // same solid.
    sea::writer& out = *dump;
    out.print("\t<block>\n");
    dump_name(out, name);
    out("\t\tlayer %d\n\t\tbasepoint(%.6f,%.6f,%.6f)\n\t\tradius %.6f\n\t\theight %.6f\n\t</block>\n", layer,
        double(center[0]), double(center[1]), double(center[2]), cuboids_only ? radius * 0.886226925452759 : radius,
        half_height);
  }
  return true;
}

}  // namespace torva
