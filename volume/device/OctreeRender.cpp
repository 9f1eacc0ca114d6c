#include "volume/device/OctreeRender.h"

#include "core/Logger.h"
#include "core/CudaCheck.h"
#include "platform/DeviceMemory.h"
#include "volume/device/OctreeLaunch.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

using namespace TezOctreeDevice;

namespace {

// A failed device step is fatal, as every device error: the check logs the
// tag and ends the process with a stack dump. It returns only where the
// process is already going down.
bool Report(const std::string& tag, const char* error)
{
    TezLogger::error("CUDA error at \"%s\": %s\n", tag.c_str(), error ? error : "unknown error");
    const int status = LastCudaStatus();
    checkCudaError(status != 0 ? status : TezDeviceErrorUnknown, tag.c_str());
    return false;
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
    const char* error = nullptr;
    if (!CudaCopy(&root, s.nodes, sizeof(root), false, &error))
        Report(std::string(operation) + ".root", error);
    return root;
}

// The kernels start at the root's children, nodes 1 to 8. A tree whose root
// has none (a constant volume) is one uniform cube of the root's value, and
// is drawn through a stand-in pool of the root and eight uniform children.
class StandInPool
{
public:
    StandInPool(const TezOctreeRenderSource& s, bool onDevice, const char* operation) : m_source(s), m_device(onDevice)
    {
        const Node root = ReadRoot(s, onDevice, operation);
        if ((root.children & TezNodeLowMask) != 0)
            return;
        if ((root.children & TezNodeFlagBit) && (root.data & TezNodeFlagBit))
            Refuse(operation, "a root with a brick but no children");
        m_nodes[0] = Node{1, root.data, root.state};
        for (int k = 1; k < 9; ++k)
            m_nodes[k] = Node{0, root.data & TezNodeLowMask, root.state};
        m_source.nodeCount = 9;
        m_source.nodes = m_nodes;
        if (!onDevice)
            return;
        const char* error = nullptr;
        size_t pitch = 0;
        if (!CudaMallocPitch(reinterpret_cast<void**>(&m_onDevice), &pitch, sizeof(m_nodes), 1, &error) ||
            !CudaCopy(m_onDevice, m_nodes, sizeof(m_nodes), true, &error))
            Report(std::string(operation) + ".root", error);
        m_source.nodes = m_onDevice;
    }
    ~StandInPool()
    {
        const char* error = nullptr;
        if (m_onDevice)
            CudaFree(m_onDevice, &error);
    }
    StandInPool(const StandInPool&) = delete;
    StandInPool& operator=(const StandInPool&) = delete;

    const TezOctreeRenderSource& Source() const { return m_source; }

private:
    TezOctreeRenderSource m_source;
    bool m_device;
    Node m_nodes[9]{};
    Node* m_onDevice = nullptr;
};

// Byte fill of a pitched buffer on either side.
bool Fill(bool onDevice, void* p, size_t pitch, uint8_t byte, size_t widthBytes, size_t rows, const std::string& tag)
{
    if (onDevice) {
        const char* error = nullptr;
        if (!CudaMemset2D(p, pitch, byte, widthBytes, rows, &error))
            return Report(tag, error);
        return true;
    }
    for (size_t r = 0; r < rows; ++r)
        std::memset(static_cast<uint8_t*>(p) + r * pitch, byte, widthBytes);
    return true;
}

// The inverse object matrix as the kernels' 16 floats, stored where the
// target keeps it; returns the pointer the kernels read.
const float* StoreTransform(const TezOctreeRenderTarget& t, const float (&inverse)[16], float (&local)[16],
                            const std::string& tag, bool& ok)
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
    const char* error = nullptr;
    if (!CudaCopy(t.transform, inverse, sizeof(local), true, &error))
        ok = Report(tag, error) && ok;
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
                             const TezVector3<float>& focus, float nearPlane, float farPlane, float fovDegrees,
                             int width, int height)
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
    return o;
}

bool TezOctreeKernelsHaveDevice()
{
    static const bool available = CudaDeviceAvailable();
    return available;
}

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

    bool ok = Fill(t.onDevice, t.depth, t.depthPitch, 0xFF, static_cast<size_t>(t.width) * 4, t.height, name + ".A");
    float inverse[16], local[16];
    Invert(matrix, inverse);
    a.transform = StoreTransform(t, inverse, local, name + ".B", ok);
    XSectionRangeFunction range{};
    if (xsection)
        range = ToOctreeSpace(*xsection, inverse);
    const bool sixteen = s.bitsPerPixel == 16;
    if (!t.onDevice) {
        RunSolidHost(a, sixteen, xsection ? &range : nullptr);
        return ok;
    }
    const char* error = nullptr;
    if (!RunSolidCuda(a, sixteen, xsection ? &range : nullptr, &error))
        ok = Report(name + ".C", error);
    return ok;
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

    bool ok = true;
    float inverse[16], local[16];
    Invert(matrix, inverse);
    a.transform = StoreTransform(t, inverse, local, name + ".A", ok);
    XSectionRangeFunction range{};
    if (xsection)
        range = ToOctreeSpace(*xsection, inverse);
    const bool sixteen = s.bitsPerPixel == 16;
    if (!t.onDevice) {
        RunTransparentHost(a, sixteen, xsection ? &range : nullptr);
        return ok;
    }
    const char* error = nullptr;
    if (!RunTransparentCuda(a, sixteen, xsection ? &range : nullptr, &error))
        ok = Report(name + ".B", error);
    return ok;
}

} // namespace

bool TezRenderOctreeSolid(const TezOctreeRenderTarget& target, const TezOctreeRenderSource& source,
                          const Camera& camera, const TezMatrix44<float>& matrix, const TezVector4<float>& colour,
                          const float* transferFunction, const TezPlane<float>* xsection)
{
    return RenderSolid(target, source, camera, matrix, colour, transferFunction, xsection);
}

bool TezRenderOctreeTransparent(const TezOctreeRenderTarget& target, const TezOctreeRenderSource& source,
                                const Camera& camera, const TezMatrix44<float>& matrix,
                                const TezVector4<float>& colour, const float* transferFunction,
                                const TezPlane<float>* xsection)
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
    if (!t.onDevice) {
        RunBlendHost(a);
        return true;
    }
    const char* error = nullptr;
    if (!RunBlendCuda(a, &error))
        return Report("TezBlendOctreeLayers", error);
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
    const Octree octree = TezMakeOctreeRecord(source);
    const bool sixteen = source.bitsPerPixel == 16;
    // A root without children (a constant volume) gets its state from the
    // kernel, as any childless node.
    if (!onDevice) {
        RunNodeStatesHost(octree, source.nodeCount, table, sixteen);
        if ((source.nodes[0].children & TezNodeLowMask) != 0)
            source.nodes[0].state = GroupState(source.nodes, source.nodeCount, 1);
        return true;
    }
    if (!hostNodes)
        Refuse("TezCalculateOctreeNodeStates", "device nodes need a host copy to complete");
    bool ok = true;
    const char* error = nullptr;
    const size_t bytes = sizeof(Node) * static_cast<size_t>(source.nodeCount);
    if (!RunNodeStatesCuda(octree, source.nodeCount, table, sixteen, &error))
        ok = Report(tag, error);
    if (!CudaCopy(hostNodes, source.nodes, bytes, false, &error))
        return Report("TezCalculateOctreeNodeStates.ReadFromCUDA", error);
    if ((hostNodes[0].children & TezNodeLowMask) != 0)
        hostNodes[0].state = GroupState(hostNodes, source.nodeCount, 1);
    if (!CudaCopy(source.nodes, hostNodes, bytes, true, &error))
        return Report("TezCalculateOctreeNodeStates.WriteToCUDA", error);
    return ok;
}

bool TezCalculateOctreeNodeStatesAdjacent(const TezOctreeRenderSource& source, bool onDevice)
{
    CheckSide("TezCalculateOctreeNodeStatesAdjacent", onDevice);
    if (!source.nodes || source.nodeCount < 9 || source.treeSize < 16)
        Refuse("TezCalculateOctreeNodeStatesAdjacent", "node pool or tree size missing");
    const Octree octree = TezMakeOctreeRecord(source);
    if (!onDevice) {
        RunNodeStatesAdjacentHost(octree);
        return true;
    }
    const char* error = nullptr;
    if (!RunNodeStatesAdjacentCuda(octree, &error))
        return Report("TezCalculateOctreeNodeStatesAdjacent", error);
    return true;
}

// ---------------------------------------------------------------------------

TezOctreeRenderBuffers::TezOctreeRenderBuffers(int width, int height, int layerCount, bool onDevice)
{
    if (width <= 0 || height <= 0 || layerCount < 0)
        Refuse("TezOctreeRenderBuffers",
               "size " + std::to_string(width) + " x " + std::to_string(height) + " x " + std::to_string(layerCount));
    CheckSide("TezOctreeRenderBuffers", onDevice);
    m_target.width = width;
    m_target.height = height;
    m_target.onDevice = onDevice;
    m_target.layerCount = layerCount;
    auto allocate = [&](size_t row, size_t rows, uint32_t& pitch) -> void* {
        if (rows == 0)
            return nullptr;
        void* p = nullptr;
        size_t bytesPerRow = row;
        if (onDevice) {
            const char* error = nullptr;
            if (!CudaMallocPitch(&p, &bytesPerRow, row, rows, &error))
                Refuse("TezOctreeRenderBuffers", error ? error : "device allocation failed");
            m_owned.push_back(p);
            CudaMemset2D(p, bytesPerRow, 0, row, rows, &error);
        } else {
            p = std::calloc(rows, row);
            if (!p)
                throw std::bad_alloc();
            m_owned.push_back(p);
        }
        pitch = static_cast<uint32_t>(bytesPerRow);
        return p;
    };
    const size_t row = static_cast<size_t>(width) * 4;
    const size_t layerRows = static_cast<size_t>(height) * static_cast<size_t>(layerCount);
    try {
        m_target.image = static_cast<uint8_t*>(allocate(row, height, m_target.imagePitch));
        m_target.depth = static_cast<uint32_t*>(allocate(row, height, m_target.depthPitch));
        m_target.colourLayers = static_cast<uint8_t*>(allocate(row, layerRows, m_target.colourLayersPitch));
        m_target.rayLayers = static_cast<float*>(allocate(row, layerRows, m_target.rayLayersPitch));
        uint32_t transformPitch = 0;
        if (onDevice)
            m_target.transform = static_cast<float*>(allocate(16 * sizeof(float), 1, transformPitch));
    } catch (...) {
        Release();
        throw;
    }
}

TezOctreeRenderBuffers::~TezOctreeRenderBuffers() { Release(); }

void TezOctreeRenderBuffers::Release()
{
    for (void* p : m_owned) {
        if (m_target.onDevice) {
            const char* error = nullptr;
            CudaFree(p, &error);
        } else {
            std::free(p);
        }
    }
    m_owned.clear();
}

namespace {

template <class T>
std::vector<T> ReadPitched(const TezOctreeRenderTarget& t, const void* p, uint32_t pitch, size_t rows)
{
    const size_t row = static_cast<size_t>(t.width) * 4;
    std::vector<T> out(rows * row / sizeof(T));
    if (!p || rows == 0)
        return out;
    if (t.onDevice) {
        const char* error = nullptr;
        if (!CudaCopy2DToHost(out.data(), row, p, pitch, row, rows, &error))
            Refuse("TezOctreeRenderBuffers::Read", error ? error : "copy failed");
        return out;
    }
    for (size_t r = 0; r < rows; ++r)
        std::memcpy(reinterpret_cast<uint8_t*>(out.data()) + r * row, static_cast<const uint8_t*>(p) + r * pitch, row);
    return out;
}

} // namespace

std::vector<uint8_t> TezOctreeRenderBuffers::ReadImage() const
{
    return ReadPitched<uint8_t>(m_target, m_target.image, m_target.imagePitch, m_target.height);
}

std::vector<uint32_t> TezOctreeRenderBuffers::ReadDepth() const
{
    return ReadPitched<uint32_t>(m_target, m_target.depth, m_target.depthPitch, m_target.height);
}

std::vector<uint8_t> TezOctreeRenderBuffers::ReadColourLayers() const
{
    return ReadPitched<uint8_t>(m_target, m_target.colourLayers, m_target.colourLayersPitch,
                                static_cast<size_t>(m_target.height) * m_target.layerCount);
}

std::vector<float> TezOctreeRenderBuffers::ReadRayLayers() const
{
    return ReadPitched<float>(m_target, m_target.rayLayers, m_target.rayLayersPitch,
                              static_cast<size_t>(m_target.height) * m_target.layerCount);
}
