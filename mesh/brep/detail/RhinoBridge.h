#pragma once
// The bridge to opennurbs behind TezBrepRhino: one Node.js process running
// media/brep/bridge.js (the rhino3dm package), spoken to through pipes in
// frames (the format is described in bridge.js). Private to TezBrepRhino
// and TezBrepFaceRhino.
//
// The process starts at the first request after ON_Begin (or at the first
// request at all, without an application) and ends with ON_End or at exit;
// it dies with the thread that started it (PR_SET_PDEATHSIG), so a crash
// leaves no process behind. A request that gets no full reply within the
// time limit kills the process and throws; the next request starts a new
// one. Requests are serialised by a mutex.
//
// Where things are found:
//   TEZ_BREP_BRIDGE          the bridge script (default: media/brep/bridge.js
//                            of the application's resources, beside the
//                            executable, or in the source tree)
//   TEZ_NODE                 the node executable (default: node on PATH)
//   TEZ_BREP_BRIDGE_TIMEOUT  seconds a request may take (default 60)
//
// Every failure throws std::runtime_error whose message starts with
// "Rhino bridge: ".

#include "mesh/brep/BrepModel.h"
#include "platform/Api.h"

#include <cstdint>
#include <string>
#include <vector>

namespace TezRhinoBridge {

// Parses a 3DM file into the kernel's geometry.
TEZ_API TezBrepModel Read(std::vector<uint8_t> const& bytes);
// The bridge's reply to reading a 3DM file, undecoded.
TEZ_API std::vector<uint8_t> ReadReply(std::vector<uint8_t> const& bytes);
// The model written again as a 3DM file of `version` (0: the newest).
TEZ_API std::vector<uint8_t> Write(std::vector<uint8_t> const& bytes, int version);
// A built-in model as 3DM bytes ("box", "pipe", "patch", "sphere", "mixed",
// "many:N").
TEZ_API std::vector<uint8_t> Sample(std::string const& name, int version);

// The hooks of ON_Begin and ON_End.
TEZ_API void Begin();
TEZ_API void End();
// Whether a bridge process is running, and its process id (0 when none).
TEZ_API int ProcessId();
// Seconds spent inside requests since the process started, for the
// benchmark's share of the bridge.
TEZ_API double SecondsInBridge();

// Parses the bridge's reply to a read (exposed for the tests of hostile
// replies). Throws on any inconsistency.
TEZ_API TezBrepModel DecodeModel(uint8_t const* data, size_t size);

} // namespace TezRhinoBridge
