#pragma once
// The one way a sub-command reads its arguments: a CLI11 app built by the
// command, parsed from TezArgs by TezCliParse, which also turns help and
// usage errors into the program's exit codes (tez/CommandLine.h).
//
//   CLI::App app("ray cast a volume into a picture", "tez render");
//   app.add_option("-o", output, "picture to write")->check(TezCliImageName());
//   if (int code = TezCliParse(app, args, out, err); code >= 0)
//       return code;
//
// -h/--help prints the (sub-)command's options on out and answers 0; a bad
// option, value, range or conflict prints "tez SUB: what" and a hint on err
// and answers 2. Both forms --opt value and --opt=value are read.

#include "tez/CommandLine.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>

// -1 when the command should run on; otherwise the exit code to return.
int TezCliParse(CLI::App& app, TezArgs const& args, FILE* out, FILE* err);
// Prints "tez NAME: problem" and the hint on err; returns 2. For conflicts
// found after parsing, such as those that need the input's header.
int TezCliUsageError(CLI::App const& app, std::string const& problem, FILE* err);

// Value checks shared by the commands; each names the accepted values.
// A picture size "WxH", each side from low to high pixels.
CLI::Validator TezCliPictureSize(int low, int high);
// An image file name whose extension the image writer knows: .png, .jpg,
// .jpeg, .tif, .tiff, .bmp, and .exr unless withExr is false (the render
// view's export writes no EXR).
CLI::Validator TezCliImageName(bool withExr = true);
// A mesh file name whose extension the mesh writer knows.
CLI::Validator TezCliMeshName();
// A list of count numbers separated by commas, each from low to high.
CLI::Validator TezCliNumbers(size_t minCount, size_t maxCount, double low, double high);
