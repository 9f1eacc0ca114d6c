#pragma once
// tez render through a document: the volume as a TezDocCubeVolume of the
// active document, drawn with the document's scene in an off-screen GPU
// render view, where the ray-cast picture is merged with GL geometry by
// depth (a mesh file beside the volume, the volume's bounding box). The
// command's application holds a GL context (tez/OffscreenGL.h).

#include "document/objects/DocCubeVolume.h"
#include "math/Plane.h"
#include "math/Vector.h"
#include "tez/HostDocument.h"

#include <cstdio>
#include <string>
#include <vector>

struct TezDocumentRenderOptions
{
    std::string output = "tez-render.png";
    int width = 1024;
    int height = 768;
    int view = 0;
    bool perspective = true;
    // Layered casting with this many layers a pixel.
    bool transparent = false;
    int layers = 2;
    // Applied to every volume of the document where given: control points
    // over 0..1 of the voxel range, colour, cut (world space; keeps the half
    // space the normal points into).
    std::vector<TezVector2<float>> points;
    bool hasColour = false;
    TezVector4<float> colour{0.9f, 0.85f, 0.75f, 1.0f};
    bool hasCut = false;
    TezPlane<float> cut;
    // Draw each volume's bounding box.
    bool box = false;
    // A mesh file (STL, OBJ, PLY) drawn with the volume, in its coordinates.
    std::string meshFile;
    // Where to save the document before drawing it (empty: not saved).
    std::string saveFile;
};

// A document volume over `octree`, added to `document`.
TezRef<TezDocCubeVolume> TezAddVolumeToDocument(TezRef<TezHostDocument> document, TezRef<TezVoxelOctree> octree);

// Draws the document's volumes and writes the picture (through a temporary
// name; nothing when the terminal's stop flag is raised); `shown` counts the
// pixels that are not the background. 0, or 1 with the reason on err.
int TezRenderDocument(TezRef<TezHostDocument> document, TezDocumentRenderOptions const& options, size_t& shown,
                      FILE* out, FILE* err);
