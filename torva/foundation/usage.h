// The help text of the client program, one element per line. The library
// never prints it.
#pragma once

#include <string>

namespace torva::sea::config_impl {

static const std::string verbose_usage[21] = {
    "The syntax:",
    " $./torva -f <file_name>",
    "          -p <err_self_cap> | -c <err_coup_cap> | <Other_control>",
    "          [-n <num_thread>] [--out-file <output_file>] ",
    "          [--log-file <log_file>][other_options]",
    "          [-spice <0/1>]  -f:  load input file <file_name>.",
    "  -p:  set relative error threshold of self capacitance for termination.",
    "  -c:  set relative error threshold for larger coupling capacitance.",
    "       Program terminates only when all these coupling capacitances (sum",
    "\t    of them > 95% of self capacitance) attain the specified accuracy.",
    "       Other control for program termination is also available. See below.",
    "       Example: \"-p 0.005\" means a 0.5% error criterion on self-cap.",
    "  -n:  set the number of threads <num_thread> for parallel computing.",
    "  --out-file:  output results to <output_file>. Default output is <file_name>.out.",
    "  --log-file:  output log info to <log_file>.   Default output is <file_name>.log.",
    "",
    "  -spice : User input '-spice' in cmd, output spice; otherwire, no. Default no.",
    "",
    "",
    " $./torva -h",
    "      Display this verbose help.",
};

}  // namespace torva::sea::config_impl
