// The records a layout file turns into: conductors (wire_net of wire_block),
// dielectric bodies (medium_net of medium_block), flat dielectric layers, and
// what the file says about layers, tasks, the simulation box and the run.
//
// Nets and blocks point at one another, so the containers that hold them are
// deques: elements never move once appended.
//
// The library defines `_WIRE_BLOCK_LAYER_NAME_` (the list of layer names the
// text reader fills from "name@layer" block names), so a client links without
// defining it; it lives for the whole process and survives between parses.
//
// Fields that no code reads (the spare vectors of a net, the spare values of a
// block) are left out.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "torva/foundation/double_wrapper.h"
#include "torva/solids/solids.h"

namespace torva {

struct wire_net;
struct medium_net;

// One solid piece of a conductor. A wire_block* also serves as a shape_t const*.
struct wire_block : shape_t {
  wire_net* net = nullptr;   // the net that holds it; null until the net stands
  std::string name;          // block name; in a text file the part before "@"
  short layer = -1;          // layer number, -1 for none
  bool floating = false;     // copy of the net's flag

  wire_block() = default;
  wire_block(const shape_t& shape, std::string block_name, short block_layer)
      : shape_t(shape), name(std::move(block_name)), layer(block_layer) {}
};

// One conductor.
struct wire_net {
  std::string name;
  std::vector<wire_block*> blocks;  // in reading order; they live in raw::wire_blocks
  bool floating = false;

  wire_net() = default;
  wire_net(std::string net_name, bool is_floating) : name(std::move(net_name)), floating(is_floating) {}
};

// One solid piece of a dielectric body. It has no name and no layer.
struct medium_block : shape_t {
  double side_tan = 0.0;
  medium_net* net = nullptr;

  medium_block() = default;
  medium_block(const shape_t& shape, double tan) : shape_t(shape), side_tan(tan) {}
};

// One dielectric body.
struct medium_net {
  std::string name;
  std::vector<medium_block*> blocks;
  sea::double_wrapper diel;

  medium_net() = default;
  medium_net(std::string net_name, sea::double_wrapper permittivity)
      : name(std::move(net_name)), diel(permittivity) {}
};

struct circuit_layout {
  // A flat dielectric layer.
  struct plate_medium {
    std::string name;
    sea::double_wrapper z_top;  // height of its upper face
    sea::double_wrapper diel;   // relative permittivity
  };

  // What the reader fills. It only appends to containers and overwrites a
  // scalar when the file names it, so the client's own values stand otherwise.
  struct raw {
    std::vector<plate_medium> plate_mediums;
    std::deque<wire_net> wire_nets;
    std::deque<wire_block> wire_blocks;
    std::deque<medium_net> medium_nets;
    std::deque<medium_block> medium_blocks;
    std::unordered_set<std::string> capacitance_tasks;
    std::unordered_map<std::string, std::string> layer_types;  // first type of a name stays
    std::map<short, std::string> layer_names;                  // first name of an id stays
    std::vector<sea::double_wrapper> layer_wmins;
    int boundary = 0;        // 1 dirichlet, 2 neumann
    cuboid_t window;         // the simulation box
    cuboid_t spare_box;
    cuboid_t critical_box;   // set by the client
    std::string window_name;
    std::string log_file;
    std::string out_file;
    double self_precision = 0.0;
    double coupling_precision = 0.0;
    double c_ratio = 0.0;
    int thread_num = 0;
    int walk_type = 0;
    int seed = 0;
    double blk_self_precision = 0.0;
    double blk_coupling_precision = 0.0;
    double b_net_ratio = 0.0;
    double b_ratio = 0.0;
    int spice = 0;
    double outmincap = 0.0;
  };

  std::uint64_t reserved = 0;
  raw data;

  // Derived by the client from `data` before a space manager is built.
  double space_margin = 0.0;                // how far the search space exceeds its box
  std::vector<wire_block const*> blocks;    // the conductor blocks to file, each once
  std::int32_t cuboid_size = 0;
  std::int32_t prism_size = 0;
  double crowding_ratio = 0.0;
  bool coarse_grid = false;
};

extern std::deque<std::string> _WIRE_BLOCK_LAYER_NAME_;

}  // namespace torva
