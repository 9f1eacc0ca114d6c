// A library built without CUDA has no device backing: views keep their
// buffers on the host.

#include "render/views/OctreeViewBacking.h"

std::unique_ptr<TezOctreeViewBacking> TezCreateCudaOctreeViewBacking() { return nullptr; }
