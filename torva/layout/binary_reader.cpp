// The binary form of the reader. NOT YET READING: every member here is a
// placeholder that reads nothing and reports failure, so that a binary file
// makes `parse` return false. The binary reader replaces this whole file.
#include "torva/layout/cap3d_parser.h"

namespace torva {

bool Cap3dParser::parseBinary(std::istream&, const std::string&, char*, std::size_t) { return false; }

bool Cap3dParser::parseBinRecord(const char*, short) { return false; }
bool Cap3dParser::parseBinPlateMedium(const char*&, short) { return false; }
bool Cap3dParser::parseBinLayer(const char*&, short) { return false; }
bool Cap3dParser::parseBinWindow(const char*&, short) { return false; }
bool Cap3dParser::parseBinParam(const char*&, short) { return false; }
bool Cap3dParser::parseBinTask(const char*&, short) { return false; }
bool Cap3dParser::parseBinMediumBegin(const char*&, short) { return false; }
bool Cap3dParser::parseBinMediumEnd(const char*&, short) { return false; }
bool Cap3dParser::parseBinConductorBegin(const char*&, short) { return false; }
bool Cap3dParser::parseBinConductorEnd(const char*&, short) { return false; }
bool Cap3dParser::parseBinBlock(const char*&, short) { return false; }
bool Cap3dParser::parseBinPoly(const char*&, short) { return false; }
bool Cap3dParser::parseBinCylinder(const char*&, short) { return false; }

int Cap3dParser::readInt(const char*&) { return 0; }
short Cap3dParser::readShort(const char*&) { return 0; }
char Cap3dParser::readChar(const char*&) { return 0; }
double Cap3dParser::readDouble(const char*&) { return 0.0; }
float Cap3dParser::readFloat(const char*&) { return 0.0f; }
std::string Cap3dParser::readString(const char*&, short) { return std::string(); }

}  // namespace torva
