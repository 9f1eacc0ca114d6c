#include "render/views/CudaRenderView.h"

#include "core/Logger.h"
#include "platform/gl/GLPlatform.h"
#include "render/CameraView.h"
#include "render/OctreeCamera.h"
#include "render/scene/Scene.h"
#include "render/scene/SceneDrawData.h"

#include <GL/glew.h>

TEZ_DEFINE_REF_FUNCTIONS(TezCudaRenderView)

namespace {

char const* const kMergeVertex = R"(#version 430 core
layout(location = 0) in vec3 vPos;
out vec2 texCoord;
void main()
{
    gl_Position = vec4(2.0 * vPos - 1.0, 1.0);
    texCoord = vPos.xy;
}
)";

// The depth word is window depth in 24-bit fixed point; written back through
// the depth range so a glDepthRange other than 0..1 is honoured.
char const* const kMergeFragment = R"(#version 430 core
in vec2 texCoord;
out vec4 outColor;
uniform usampler2D texImage;
uniform usampler2D depthImage;
void main()
{
    uvec4 c = texture(texImage, texCoord);
    uint d = texture(depthImage, texCoord).r;
    outColor = vec4(c) / 255.0;
    if (d >= 4294967295u || d == 0u)
        discard;
    gl_FragDepth = ((gl_DepthRange.diff * (float(d) / 16777216.0 * 2.0 - 1.0)) + gl_DepthRange.near +
                    gl_DepthRange.far) / 2.0;
}
)";

// The quad over the unit square; the vertex stage spreads it over clip space.
float const kQuad[12] = {0, 1, 0.5f, 0, 0, 0.5f, 1, 1, 0.5f, 1, 0, 0.5f};

unsigned MakeIntegerTexture(GLint internalFormat, GLenum format, GLenum type, int width, int height)
{
    GLuint texture = 0;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glTexImage2D(GL_TEXTURE_2D, 0, internalFormat, width, height, 0, format, type, nullptr);
    glBindTexture(GL_TEXTURE_2D, 0);
    return texture;
}

std::vector<TezString> const kSobelSizes = {"Off", "3 x 3", "5 x 5", "7 x 7", "9 x 9"};
std::vector<TezString> const kSobelTypes = {"Taxicab Linear Distance", "1/R Distribution", "1/R2 Distribution"};

} // namespace

TezCudaRenderView::TezCudaRenderView(std::unique_ptr<TezOctreeViewBacking> backing) : m_backing(std::move(backing))
{
    m_sobelFilterType = TezPrefOptionEnum::Create(kSobelTypes[0], kSobelTypes, "Sobel Filter Type", "Render Options",
                                                  "Options", "SobelFilterType");
    m_sobelFilterSize = TezPrefOptionEnum::Create(kSobelSizes[1], kSobelSizes, "Sobel Filter Size", "Render Options",
                                                  "Options", "SobelFilterSize");
}

TezCudaRenderView::~TezCudaRenderView()
{
    DeallocateCUDAArrays();
    // GL names go with a bound context; without one they go with the context.
    if ((m_program || m_imageTexture || m_vertexArray) && ActivateContext()) {
        DeleteTextures();
        glDeleteProgram(m_program);
        glDeleteBuffers(1, &m_vertexBuffer);
        glDeleteVertexArrays(1, &m_vertexArray);
        DeactivateContext();
    }
    m_sobelFilterType = nullptr;
    m_sobelFilterSize = nullptr;
}

bool TezCudaRenderView::Initialize(HWND window, unsigned width, unsigned height)
{
    bool const base = TezRenderView::Initialize(window, width, height);
    return CudaInitialize() && base;
}

bool TezCudaRenderView::Resize(unsigned width, unsigned height)
{
    bool const base = TezRenderView::Resize(width, height);
    return CudaResize() && base;
}

bool TezCudaRenderView::Paint()
{
    if (!BeginPaint())
        return false;
    bool const drawn = PaintLo();
    bool const end = EndPaint();
    return drawn && end;
}

bool TezCudaRenderView::PaintLo()
{
    glGetError();
    TezRef<TezScene> scene = GetScene();
    if (!scene)
        return true;
    if (!TezGLPlatform::GetCurrentContext())
        return false;
    CudaPreRender();

    TezSceneDrawData plain;
    plain.SetRenderView(this);
    bool result = scene->Draw(plain);
    glGetError();

    TezSceneDrawData transparent;
    transparent.SetRenderView(this);
    transparent.SetTransparent();
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glDisable(GL_DEPTH_TEST);
    result = scene->Draw(transparent) && result;
    glDisable(GL_BLEND);
    glEnable(GL_DEPTH_TEST);
    glGetError();

    CudaPostRender();
    glGetError();

    glClear(GL_DEPTH_BUFFER_BIT);
    glDisable(GL_DEPTH_TEST);
    TezSceneDrawData overlay;
    overlay.SetRenderView(this);
    overlay.SetOverlay();
    result = scene->Draw(overlay) && result;
    glEnable(GL_DEPTH_TEST);
    glGetError();
    return result;
}

void TezCudaRenderView::SetNumAccumHits(uint64_t hits)
{
    DeallocateCUDAArrays();
    m_numAccumHits = hits;
    AllocateCUDAArrays();
}

TezCudaRenderView::SobelFilterSize TezCudaRenderView::GetSobelFilterSize() const
{
    return static_cast<SobelFilterSize>(m_sobelFilterSize->Get());
}

void TezCudaRenderView::SetSobelFilterSize(SobelFilterSize size) { m_sobelFilterSize->Set(static_cast<int>(size)); }

TezCudaRenderView::SobelFilterType TezCudaRenderView::GetSobelFilterType() const
{
    return static_cast<SobelFilterType>(m_sobelFilterType->Get());
}

void TezCudaRenderView::SetSobelFilterType(SobelFilterType type) { m_sobelFilterType->Set(static_cast<int>(type)); }

bool TezCudaRenderView::CUDAClearDepthBuffer()
{
    if (!GetRenderTarget().depth)
        return false;
    return TezClearOctreeDepth(GetRenderTarget(), 0xFF);
}

bool TezCudaRenderView::PostToOpenGL()
{
    if (!m_backing->Upload(m_imageTexture, m_depthTexture))
        TezLogger::error("TezCudaRenderView::PostToOpenGL: the upload of image and depth failed\n");
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, m_imageTexture);
    glActiveTexture(GL_TEXTURE1);
    glBindTexture(GL_TEXTURE_2D, m_depthTexture);
    glUseProgram(m_program);
    glUniform1i(glGetUniformLocation(m_program, "texImage"), 0);
    glUniform1i(glGetUniformLocation(m_program, "depthImage"), 1);
    glBindVertexArray(m_vertexArray);
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    glBindVertexArray(0);
    glBindTexture(GL_TEXTURE_2D, 0);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, 0);
    glUseProgram(0);
    return true;
}

bool TezCudaRenderView::CudaInitialize()
{
    DeallocateCUDAArrays();
    bool const image = CudaInitializeImage();
    return AllocateCUDAArrays() && image;
}

bool TezCudaRenderView::CudaInitializeImage()
{
    if (!ActivateContext())
        return false;
    // A second Initialize starts over rather than leaking the first one's names.
    DeleteTextures();
    glDeleteProgram(m_program);
    glDeleteBuffers(1, &m_vertexBuffer);
    glDeleteVertexArrays(1, &m_vertexArray);
    MakeTextures();
    glGenBuffers(1, &m_vertexBuffer);
    glGenVertexArrays(1, &m_vertexArray);
    glBindVertexArray(m_vertexArray);
    glBindBuffer(GL_ARRAY_BUFFER, m_vertexBuffer);
    glBufferData(GL_ARRAY_BUFFER, sizeof(kQuad), kQuad, GL_STATIC_DRAW);
    glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 12, nullptr);
    glEnableVertexAttribArray(0);
    glBindVertexArray(0);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    CompileGLSLprogram();
    DeactivateContext();
    return true;
}

bool TezCudaRenderView::CudaResize()
{
    DeallocateCUDAArrays();
    bool const image = CudaResizeImage();
    return AllocateCUDAArrays() && image;
}

bool TezCudaRenderView::CudaResizeImage()
{
    if (!ActivateContext())
        return false;
    DeleteTextures();
    MakeTextures();
    DeactivateContext();
    return true;
}

void TezCudaRenderView::MakeTextures()
{
    int const width = GetCamera()->GetWidth(), height = GetCamera()->GetHeight();
    if (width < 1 || height < 1)
        return;
    m_imageTexture = MakeIntegerTexture(GL_RGBA8UI, GL_RGBA_INTEGER, GL_UNSIGNED_BYTE, width, height);
    m_depthTexture = MakeIntegerTexture(GL_R32UI, GL_RED_INTEGER, GL_UNSIGNED_INT, width, height);
}

void TezCudaRenderView::DeleteTextures()
{
    m_backing->DetachTextures();
    GLuint const names[2] = {m_imageTexture, m_depthTexture};
    glDeleteTextures(2, names);
    m_imageTexture = m_depthTexture = 0;
}

bool TezCudaRenderView::AllocateCUDAArrays()
{
    int const width = GetCamera()->GetWidth(), height = GetCamera()->GetHeight();
    if (width < 1 || height < 1)
        return false;
    m_backing->Allocate(width, height, static_cast<int>(m_numAccumHits));
    m_layersDirty = true;
    return true;
}

void TezCudaRenderView::DeallocateCUDAArrays() { m_backing->Release(); }

void TezCudaRenderView::CompileGLSLprogram()
{
    m_program = glCreateProgram();
    struct Stage
    {
        GLenum type;
        char const* source;
        char const* failure;
    };
    Stage const stages[2] = {
        {GL_VERTEX_SHADER, kMergeVertex, "ERROR: HDT Render vertex shader failed to compile:\n%s\n"},
        {GL_FRAGMENT_SHADER, kMergeFragment, "ERROR: HDT Render fragment shader failed to compile:\n%s\n"}};
    GLuint shaders[2] = {0, 0};
    for (int i = 0; i < 2; ++i) {
        shaders[i] = glCreateShader(stages[i].type);
        glShaderSource(shaders[i], 1, &stages[i].source, nullptr);
        glCompileShader(shaders[i]);
        GLint compiled = GL_FALSE;
        glGetShaderiv(shaders[i], GL_COMPILE_STATUS, &compiled);
        if (compiled) {
            glAttachShader(m_program, shaders[i]);
        } else {
            char log[2048] = {0};
            glGetShaderInfoLog(shaders[i], sizeof(log), nullptr, log);
            TezLogger::error(stages[i].failure, log);
        }
    }
    glLinkProgram(m_program);
    GLint linked = GL_FALSE;
    glGetProgramiv(m_program, GL_LINK_STATUS, &linked);
    if (!linked) {
        char log[2048] = {0};
        glGetProgramInfoLog(m_program, sizeof(log), nullptr, log);
        TezLogger::error("ERROR: HDT Render shader failed to link: %s\n", log);
    }
    for (GLuint shader : shaders)
        glDeleteShader(shader);
}

bool TezCudaRenderView::CudaPreRender()
{
    m_layersCast = false;
    if (!GetRenderTarget().image)
        return false;
    if (!m_layersDirty)
        return true;
    m_layersDirty = false;
    return TezClearOctreeLayers(GetRenderTarget());
}

bool TezCudaRenderView::CudaPostRender()
{
    TezOctreeRenderTarget const& target = GetRenderTarget();
    if (!target.image)
        return false;
    if (!m_layersCast)
        return true;
    // Solid objects have been posted already: what is left to merge is the
    // layers, over a depth of "no surface" everywhere else.
    TezClearOctreeDepth(target, 0x00);
    bool blended = true;
    if (target.layerCount > 0)
        blended = TezBlendOctreeLayers(target, TezMakeOctreeCamera(*GetCamera()));
    return PostToOpenGL() && blended;
}
