#include "render/effects/detail/LightUniforms.h"

#include "render/CameraView.h"
#include "render/effects/detail/EffectGL.h"
#include "render/scene/Light.h"
#include "render/scene/SceneDrawData.h"

namespace tez_effects {

void SetLightUniforms(GLuint program, TezSceneDrawData const& data)
{
    TezRef<TezCameraView> camera = data.GetCamera();
    TezVector3<float> const eye = camera ? camera->GetEye() : TezVector3<float>(0.0f, 0.0f, 0.0f);
    SetUniform(program, "eyePosition", eye);
    TezRef<TezLight> light = data.GetLight();
    if (!light || !light->IsEnabled())
        return;
    TezVector3<float> const& position = light->GetPosition();
    bool const headLight = position.x == 0.0f && position.y == 0.0f && position.z == 0.0f;
    SetUniform(program, "lightPosition", headLight ? eye : position);
}

} // namespace tez_effects
