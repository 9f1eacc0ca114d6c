#include "volume/device/OctreeRender.h"

#include "core/CudaCheck.h"
#include "platform/DeviceBuffer.h"
#include "platform/DeviceMemory.h"
#include "volume/device/OctreeLaunch.h"

#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>

using namespace TezOctreeDevice;

namespace {

// Device failures are fatal, as every device error: the check logs the tag
// and ends the process with a stack dump. Host memory never fails here.
void Check(int status, const std::string& tag) { checkCudaError(status, tag.c_str()); }

// The side's kernels, chosen once per call.
const LaunchBackend& Launches(bool onDevice) { return onDevice ? CudaLaunches : HostLaunches; }

// After a launch: a device launch's error, with its tag; nothing on the host.
void CheckLaunch(bool onDevice, const std::string& tag)
{
    if (onDevice)
        checkLastCudaError(tag.c_str());
}

void Refuse(const char* operation, const std::string& what)
{
    throw std::runtime_error(std::string(operation) + ": " + what);
}

void CheckSide(const char* operation, bool onDevice)
{
    if (onDevice && !TezOctreeKernelsHaveDevice())
        Refuse(operation, "device buffers given, but no CUDA device is usable");
}

void CheckImage(const char* operation, const TezOctreeRenderTarget& t)
{
    if (t.width <= 0 || t.height <= 0)
        Refuse(operation, "target size " + std::to_string(t.width) + " x " + std::to_string(t.height));
    CheckSide(operation, t.onDevice);
    const uint32_t row = static_cast<uint32_t>(t.width) * 4u;
    if (!t.image || !t.depth || t.imagePitch < row || t.depthPitch < row)
        Refuse(operation, "image or depth buffer missing or its pitch below width * 4");
}

void CheckLayers(const char* operation, const TezOctreeRenderTarget& t)
{
    if (t.width <= 0 || t.height <= 0)
        Refuse(operation, "target size " + std::to_string(t.width) + " x " + std::to_string(t.height));
    CheckSide(operation, t.onDevice);
    const uint32_t row = static_cast<uint32_t>(t.width) * 4u;
    if (t.layerCount <= 0 || !t.colourLayers || !t.rayLayers || t.colourLayersPitch < row || t.rayLayersPitch < row)
        Refuse(operation, "layer buffers missing or their pitch below width * 4");
}

void CheckSource(const char* operation, const TezOctreeRenderSource& s, const float* table)
{
    if (!s.nodes || !table || s.nodeCount < 1)
        Refuse(operation, "node pool or transfer function missing");
}

// The root of a source, read from the side its pool lives on.
Node ReadRoot(const TezOctreeRenderSource& s, bool onDevice, const char* operation)
{
    if (!onDevice)
        return s.nodes[0];
    Node root{};
    Check(TezDeviceMemcpy(&root, s.nodes, sizeof(root), TezDeviceDeviceToHost), std::string(operation) + ".root");
    return root;
}

// The kernels start at the root's children, nodes 1 to 8, so a root without
// children is drawn through a stand-in pool:
// - a constant volume (no brick) is one uniform cube of the root's value: the
//   root and eight uniform children of that value;
// - a tree of one brick (a source that fits in 16^3 voxels) becomes child 0
//   of a stand-in root twice its size, beside seven empty children (value 0,
//   as outside any source). The stand-in tree spans twice the original, so
//   the object's inverse is scaled by one half: the brick keeps its world box
//   and t its world scale. The brick is reached at level 0, where the level
//   limit (at least 2) never cuts the descent.
class StandInPool
{
public:
    StandInPool(const TezOctreeRenderSource& s, bool onDevice, const char* operation) : m_source(s)
    {
        const Node root = ReadRoot(s, onDevice, operation);
        if ((root.children & TezNodeLowMask) != 0)
            return;
        Node nodes[9];
        if ((root.children & TezNodeFlagBit) && (root.data & TezNodeFlagBit)) {
            nodes[0] = Node{1, 0, root.state};
            nodes[1] = root;
            for (int k = 2; k < 9; ++k)
                nodes[k] = Node{0, 0, TezNodeStateEmpty};
            m_scale = 0.5f;
        } else {
            nodes[0] = Node{1, root.data, root.state};
            for (int k = 1; k < 9; ++k)
                nodes[k] = Node{0, root.data & TezNodeLowMask, root.state};
        }
        m_nodes = TezDeviceBuffer(sizeof(nodes), 1, onDevice);
        Check(m_nodes.Upload(nodes, sizeof(nodes)), std::string(operation) + ".root");
        m_source.nodeCount = 9;
        m_source.nodes = static_cast<Node*>(m_nodes.Get());
    }

    const TezOctreeRenderSource& Source() const { return m_source; }

    // The inverse object matrix (row vectors) mapped into the stand-in
    // tree's unit cube.
    void ToPoolSpace(float (&inverse)[16]) const
    {
        for (int row = 0; row < 4; ++row)
            for (int col = 0; col < 3; ++col)
                inverse[4 * row + col] *= m_scale;
    }

private:
    TezOctreeRenderSource m_source;
    TezDeviceBuffer m_nodes;
    float m_scale = 1.0f;
};

// Byte fill of a pitched buffer on either side, checked with the tag.
bool Fill(bool onDevice, void* p, size_t pitch, uint8_t byte, size_t widthBytes, size_t rows, const std::string& tag)
{
    Check(TezFillRows(onDevice, p, pitch, byte, widthBytes, rows), tag);
    return true;
}

// The inverse object matrix as the kernels' 16 floats, stored where the
// target keeps it; returns the pointer the kernels read.
const float* StoreTransform(const TezOctreeRenderTarget& t, const float (&inverse)[16], float (&local)[16],
                            const std::string& tag)
{
    std::memcpy(local, inverse, sizeof(local));
    if (!t.onDevice) {
        if (!t.transform)
            return local;
        std::memcpy(t.transform, inverse, sizeof(local));
        return t.transform;
    }
    if (!t.transform)
        Refuse(tag.c_str(), "device target without a transform buffer");
    Check(TezDeviceMemcpy(t.transform, inverse, sizeof(local), TezDeviceHostToDevice), tag);
    return t.transform;
}

// The cut plane in octree space: root through the inverse, normal through
// its rotation part, normalised.
XSectionRangeFunction ToOctreeSpace(const TezPlane<float>& plane, const float (&T)[16])
{
    const TezVector3<float>& n = plane.GetNormal();
    const TezVector3<float>& r = plane.GetRoot();
    float3s normal{n.x * T[0] + n.y * T[4] + n.z * T[8], n.x * T[1] + n.y * T[5] + n.z * T[9],
                   n.x * T[2] + n.y * T[6] + n.z * T[10]};
    const float len = std::sqrt(normal.x * normal.x + normal.y * normal.y + normal.z * normal.z);
    if (len > 0.0f)
        normal = float3s{normal.x / len, normal.y / len, normal.z / len};
    const float3s root{r.x * T[0] + r.y * T[4] + r.z * T[8] + T[12], r.x * T[1] + r.y * T[5] + r.z * T[9] + T[13],
                       r.x * T[2] + r.y * T[6] + r.z * T[10] + T[14]};
    return XSectionRangeFunction{root, normal};
}

void Invert(const TezMatrix44<float>& matrix, float (&out)[16]) { matrix.Inverse().Array(out); }

uint32_t GroupState(Node* nodes, int count, uint32_t first)
{
    return CombineChildStates([nodes](uint32_t i) -> Node& { return nodes[i]; }, uint64_t(count), first, 0);
}

} // namespace

Camera TezMakeOctreeCamera(bool perspective, const TezVector3<float>& eye, const TezVector3<float> axes[3],
                           const TezVector3<float>& focus, float nearPlane, float farPlane, float fovDegrees, int width,
                           int height)
{
    auto f3 = [](const TezVector3<float>& v) { return float3s{v.x, v.y, v.z}; };
    Camera c{};
    c.perspective = perspective ? 1 : 0;
    c.eye = f3(eye);
    c.axisX = f3(axes[0]);
    c.axisY = f3(axes[1]);
    c.axisZ = f3(axes[2]);
    c.focus = f3(focus);
    c.near = nearPlane;
    c.far = farPlane;
    c.fov = fovDegrees * TezPif / 180.0f;
    c.width = width;
    c.height = height;
    return c;
}

Camera TezMakeOctreeCamera(const TezCameraRecord& r)
{
    auto f3 = [](const TezVector3<float>& v) { return float3s{v.x, v.y, v.z}; };
    Camera c{};
    c.perspective = r.perspective;
    c.eye = f3(r.eye);
    c.axisX = f3(r.axisX);
    c.axisY = f3(r.axisY);
    c.axisZ = f3(r.axisZ);
    c.focus = f3(r.focus);
    c.near = r.near;
    c.far = r.far;
    c.fov = r.fov;
    c.width = r.width;
    c.height = r.height;
    return c;
}

Octree TezMakeOctreeRecord(const TezOctreeRenderSource& source)
{
    if (source.bitsPerPixel != 8 && source.bitsPerPixel != 16)
        Refuse("TezMakeOctreeRecord", "bits per voxel " + std::to_string(source.bitsPerPixel));
    Octree o{};
    o.valueScale = source.bitsPerPixel == 16 ? 1.0f / 65535.0f : 1.0f / 255.0f;
    o.voxelSize = source.voxelSize;
    o.maxDepth = source.maxDepth;
    o.nodes = source.nodes;
    o.leaves = source.leaves;
    o.treeSize = source.treeSize;
    o.skipByState = source.statesValid ? 1 : 0;
    o.looks = source.looks;
    o.blockMasks = source.statesValid ? source.blockMasks : nullptr;
    return o;
}

bool TezOctreeKernelsHaveDevice() { return CudaKernelsBuilt() && TezDeviceIsCuda(); }

namespace {

bool RenderSolid(const TezOctreeRenderTarget& t, const TezOctreeRenderSource& source, const Camera& camera,
                 const TezMatrix44<float>& matrix, const TezVector4<float>& colour, const float* table,
                 const TezPlane<float>* xsection)
{
    const std::string name = xsection ? "TezVoxelOctreeRenderSolidWithXSection" : "TezVoxelOctreeRenderSolid";
    CheckImage(name.c_str(), t);
    CheckSource(name.c_str(), source, table);
    const StandInPool pool(source, t.onDevice, name.c_str());
    const TezOctreeRenderSource& s = pool.Source();
    SolidLaunch a{};
    a.camera = camera;
    a.camera.width = t.width;
    a.camera.height = t.height;
    a.octree = TezMakeOctreeRecord(s);
    a.colour = float3s{colour.x, colour.y, colour.z};
    a.imagePitch = t.imagePitch;
    a.image = reinterpret_cast<uchar4s*>(t.image);
    a.depthPitch = t.depthPitch;
    a.depth = t.depth;
    a.lookup = LookupTransferFunction{table};

    Fill(t.onDevice, t.depth, t.depthPitch, 0xFF, static_cast<size_t>(t.width) * 4, t.height, name + ".A");
    float inverse[16], local[16];
    Invert(matrix, inverse);
    pool.ToPoolSpace(inverse);
    a.transform = StoreTransform(t, inverse, local, name + ".B");
    XSectionRangeFunction range{};
    if (xsection)
        range = ToOctreeSpace(*xsection, inverse);
    Launches(t.onDevice).solid(a, s.bitsPerPixel == 16, xsection ? &range : nullptr);
    CheckLaunch(t.onDevice, name + ".C");
    return true;
}

bool RenderTransparent(const TezOctreeRenderTarget& t, const TezOctreeRenderSource& source, const Camera& camera,
                       const TezMatrix44<float>& matrix, const TezVector4<float>& colour, const float* table,
                       const TezPlane<float>* xsection)
{
    const std::string name =
        xsection ? "TezVoxelOctreeRenderTransparentWithXSection" : "TezVoxelOctreeRenderTransparent";
    CheckLayers(name.c_str(), t);
    CheckSource(name.c_str(), source, table);
    const StandInPool pool(source, t.onDevice, name.c_str());
    const TezOctreeRenderSource& s = pool.Source();
    TransparentLaunch a{};
    a.camera = camera;
    a.camera.width = t.width;
    a.camera.height = t.height;
    a.octree = TezMakeOctreeRecord(s);
    a.colour = float4s{colour.x, colour.y, colour.z, colour.w};
    a.layerCount = t.layerCount;
    a.colourLayers = reinterpret_cast<uchar4s*>(t.colourLayers);
    a.colourPitch = t.colourLayersPitch;
    a.rayLayers = t.rayLayers;
    a.rayPitch = t.rayLayersPitch;
    a.lookup = LookupTransparentTransferFunction{table, {0, 0, 0, 0}};

    float inverse[16], local[16];
    Invert(matrix, inverse);
    pool.ToPoolSpace(inverse);
    a.transform = StoreTransform(t, inverse, local, name + ".A");
    XSectionRangeFunction range{};
    if (xsection)
        range = ToOctreeSpace(*xsection, inverse);
    Launches(t.onDevice).transparent(a, s.bitsPerPixel == 16, xsection ? &range : nullptr);
    CheckLaunch(t.onDevice, name + ".B");
    return true;
}

} // namespace

bool TezRenderOctreeSolid(const TezOctreeRenderTarget& target, const TezOctreeRenderSource& source,
                          const Camera& camera, const TezMatrix44<float>& matrix, const TezVector4<float>& colour,
                          const float* transferFunction, const TezPlane<float>* xsection)
{
    return RenderSolid(target, source, camera, matrix, colour, transferFunction, xsection);
}

bool TezRenderOctreeTransparent(const TezOctreeRenderTarget& target, const TezOctreeRenderSource& source,
                                const Camera& camera, const TezMatrix44<float>& matrix, const TezVector4<float>& colour,
                                const float* transferFunction, const TezPlane<float>* xsection)
{
    return RenderTransparent(target, source, camera, matrix, colour, transferFunction, xsection);
}

bool TezBlendOctreeLayers(const TezOctreeRenderTarget& t, const Camera& camera)
{
    CheckImage("TezBlendOctreeLayers", t);
    CheckLayers("TezBlendOctreeLayers", t);
    BlendLaunch a{};
    a.camera = camera;
    a.camera.width = t.width;
    a.camera.height = t.height;
    a.layerCount = t.layerCount;
    a.colourLayers = reinterpret_cast<uchar4s*>(t.colourLayers);
    a.colourPitch = t.colourLayersPitch;
    a.rayLayers = t.rayLayers;
    a.rayPitch = t.rayLayersPitch;
    a.depth = t.depth;
    a.depthPitch = t.depthPitch;
    a.image = reinterpret_cast<uchar4s*>(t.image);
    a.imagePitch = t.imagePitch;
    Launches(t.onDevice).blend(a);
    CheckLaunch(t.onDevice, "TezBlendOctreeLayers");
    return true;
}

bool TezClearOctreeDepth(const TezOctreeRenderTarget& t, uint8_t byte)
{
    CheckImage("TezClearOctreeDepth", t);
    return Fill(t.onDevice, t.depth, t.depthPitch, byte, static_cast<size_t>(t.width) * 4, t.height,
                "TezClearOctreeDepth");
}

bool TezClearOctreeImage(const TezOctreeRenderTarget& t, uint8_t byte)
{
    CheckImage("TezClearOctreeImage", t);
    return Fill(t.onDevice, t.image, t.imagePitch, byte, static_cast<size_t>(t.width) * 4, t.height,
                "TezClearOctreeImage");
}

bool TezClearOctreeLayers(const TezOctreeRenderTarget& t)
{
    CheckLayers("TezClearOctreeLayers", t);
    const size_t rows = static_cast<size_t>(t.height) * static_cast<size_t>(t.layerCount);
    const size_t row = static_cast<size_t>(t.width) * 4;
    const bool rays = Fill(t.onDevice, t.rayLayers, t.rayLayersPitch, 0, row, rows, "TezClearOctreeLayers.A");
    const bool colours = Fill(t.onDevice, t.colourLayers, t.colourLayersPitch, 0, row, rows, "TezClearOctreeLayers.C");
    return rays && colours;
}

bool TezCalculateOctreeNodeStates(const TezOctreeRenderSource& source, const float* table, bool onDevice,
                                  Node* hostNodes)
{
    const char* tag = "TezVoxelOctreeCalculateNodeStates.A";
    CheckSide("TezCalculateOctreeNodeStates", onDevice);
    CheckSource("TezCalculateOctreeNodeStates", source, table);
    if (onDevice && !hostNodes)
        Refuse("TezCalculateOctreeNodeStates", "device nodes need a host copy to complete");
    Launches(onDevice).nodeStates(TezMakeOctreeRecord(source), source.nodeCount, table, source.bitsPerPixel == 16);
    CheckLaunch(onDevice, tag);
    // The host pass completes the nodes with children, on a host copy. A
    // root without children (a constant volume) has its state already.
    Node* nodes = source.nodes;
    const size_t bytes = sizeof(Node) * static_cast<size_t>(source.nodeCount);
    if (onDevice) {
        Check(TezDeviceMemcpy(hostNodes, source.nodes, bytes, TezDeviceDeviceToHost),
              "TezCalculateOctreeNodeStates.ReadFromCUDA");
        nodes = hostNodes;
    }
    if ((nodes[0].children & TezNodeLowMask) != 0)
        nodes[0].state = GroupState(nodes, source.nodeCount, 1);
    if (onDevice)
        Check(TezDeviceMemcpy(source.nodes, hostNodes, bytes, TezDeviceHostToDevice),
              "TezCalculateOctreeNodeStates.WriteToCUDA");
    return true;
}

bool TezCalculateOctreeBlockMasks(const TezOctreeRenderSource& source, const float* table, std::vector<uint64_t>& masks)
{
    CheckSource("TezCalculateOctreeBlockMasks", source, table);
    HostBlockMasks(TezMakeOctreeRecord(source), source.nodeCount, table, source.bitsPerPixel == 16, masks);
    return true;
}

bool TezCalculateOctreeNodeStatesAdjacent(const TezOctreeRenderSource& source, bool onDevice)
{
    CheckSide("TezCalculateOctreeNodeStatesAdjacent", onDevice);
    if (!source.nodes || source.nodeCount < 9 || source.treeSize < 16)
        Refuse("TezCalculateOctreeNodeStatesAdjacent", "node pool or tree size missing");
    Launches(onDevice).nodeStatesAdjacent(TezMakeOctreeRecord(source));
    CheckLaunch(onDevice, "TezCalculateOctreeNodeStatesAdjacent");
    return true;
}

// ---------------------------------------------------------------------------

TezOctreeRenderBuffers::TezOctreeRenderBuffers(int width, int height, int layerCount, bool onDevice)
{
    if (width <= 0 || height <= 0 || layerCount < 0)
        Refuse("TezOctreeRenderBuffers",
               "size " + std::to_string(width) + " x " + std::to_string(height) + " x " + std::to_string(layerCount));
    CheckSide("TezOctreeRenderBuffers", onDevice);
    const size_t row = static_cast<size_t>(width) * 4;
    const size_t layerRows = static_cast<size_t>(height) * static_cast<size_t>(layerCount);
    m_image = TezDeviceBuffer(row, static_cast<size_t>(height), onDevice);
    m_depth = TezDeviceBuffer(row, static_cast<size_t>(height), onDevice);
    m_colourLayers = TezDeviceBuffer(row, layerRows, onDevice);
    m_rayLayers = TezDeviceBuffer(row, layerRows, onDevice);
    if (onDevice)
        m_transform = TezDeviceBuffer(16 * sizeof(float), 1, onDevice);

    m_target.width = width;
    m_target.height = height;
    m_target.onDevice = onDevice;
    m_target.layerCount = layerCount;
    m_target.image = static_cast<uint8_t*>(m_image.Get());
    m_target.imagePitch = static_cast<uint32_t>(m_image.GetPitch());
    m_target.depth = static_cast<uint32_t*>(m_depth.Get());
    m_target.depthPitch = static_cast<uint32_t>(m_depth.GetPitch());
    m_target.colourLayers = static_cast<uint8_t*>(m_colourLayers.Get());
    m_target.colourLayersPitch = static_cast<uint32_t>(m_colourLayers.GetPitch());
    m_target.rayLayers = static_cast<float*>(m_rayLayers.Get());
    m_target.rayLayersPitch = static_cast<uint32_t>(m_rayLayers.GetPitch());
    m_target.transform = static_cast<float*>(m_transform.Get());
}

namespace {

template <class T>
std::vector<T> ReadRows(const TezDeviceBuffer& buffer)
{
    std::vector<T> out(buffer.GetRows() * buffer.GetWidthBytes() / sizeof(T));
    Check(buffer.Download(out.data(), 0, buffer.GetRows()), "TezOctreeRenderBuffers::Read");
    return out;
}

} // namespace

std::vector<uint8_t> TezOctreeRenderBuffers::ReadImage() const { return ReadRows<uint8_t>(m_image); }

std::vector<uint32_t> TezOctreeRenderBuffers::ReadDepth() const { return ReadRows<uint32_t>(m_depth); }

std::vector<uint8_t> TezOctreeRenderBuffers::ReadColourLayers() const { return ReadRows<uint8_t>(m_colourLayers); }

std::vector<float> TezOctreeRenderBuffers::ReadRayLayers() const { return ReadRows<float>(m_rayLayers); }
