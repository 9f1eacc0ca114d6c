#pragma once
// The effects whose geometry stage makes what is drawn: wireframes, thick
// lines, ribbons of constant pixel width, and the B-rep face.
//   TezEffectTriangleMesh      "Effect Revolved Ribbon" (the name is shared
//                              with TezEffectRevolvedRibbon; the ids differ)
//       pass 0 vDefault + fDefaultLit, pass 1 vDefaultForGeomShader +
//       gWireframeMesh + fDefaultUnlit: a lit surface, then its edges.
//   TezEffectThickPolyline     "Effect Thick Polyline", 2 passes:
//       vNoProjection + gLinesAdjThickener + fDefaultLit; "thickness" in
//       view units (0.02 to start).
//   TezEffectRectangularRibbon "Effect Rectangular Ribbon": vParametricToWorld
//       + gLinesAdjWidener + fLitWithDarkerBackside; "width", "depth",
//       "height" size the box, "pixelWidth" the ribbon.
//   TezEffectRevolvedRibbon    "Effect Revolved Ribbon": vCylindricalToWorld
//       + gLinesAdjWidener; "bottomRadius", "topRadius", "height".
//   TezEffectPolarRibbon       "Effect Polar Ribbon", 2 passes: latitude and
//       longitude circles, vLatitudeToWorld / vLongitudeToWorld +
//       gLinesWidener; "radius"; attribute "inParam".
//   TezEffectCoordSys          "Effect Oriented Polyline", 3 passes: thick
//       lines, circle sprites, triangle sprites; "inPosition", "inOrientation".
//   TezEffectBrepFace          "Effect Brep Face", 2 passes object-major:
//       pass 0 draws the trim loops in parameter space (vParam2D), pass 1 the
//       face, discarding where "trimTexture" (unit 0) is clear (vDefaultWithUV
//       + fTrimmedLit, map fTrimmedUnlit); "inPosition", "inNormal", "inParam".
// Every map fragment writes "objectColor" unchanged. The context must be
// current.

#include "render/effects/MultiPassEffect.h"

class TEZ_API TezEffectTriangleMesh : public TezMultiPassEffect
{
    TEZ_TYPIFIED_CLASS(TezEffectTriangleMesh)
protected:
    TezEffectTriangleMesh();
};

class TEZ_API TezEffectThickPolyline : public TezMultiPassEffect
{
    TEZ_TYPIFIED_CLASS(TezEffectThickPolyline)
public:
    bool GLInitialize() override;

protected:
    TezEffectThickPolyline();
};

class TEZ_API TezEffectRectangularRibbon : public TezMultiPassEffect
{
    TEZ_TYPIFIED_CLASS(TezEffectRectangularRibbon)
protected:
    TezEffectRectangularRibbon();
};

class TEZ_API TezEffectRevolvedRibbon : public TezMultiPassEffect
{
    TEZ_TYPIFIED_CLASS(TezEffectRevolvedRibbon)
protected:
    TezEffectRevolvedRibbon();
};

class TEZ_API TezEffectPolarRibbon : public TezMultiPassEffect
{
    TEZ_TYPIFIED_CLASS(TezEffectPolarRibbon)
protected:
    TezEffectPolarRibbon();
};

class TEZ_API TezEffectCoordSys : public TezMultiPassEffect
{
    TEZ_TYPIFIED_CLASS(TezEffectCoordSys)
public:
    bool GLInitialize() override;
    void StartEffect(TezSceneDrawData const& data, unsigned pass) override;
    void EndEffect(TezSceneDrawData const& data, unsigned pass) override;

protected:
    TezEffectCoordSys();
};

class TEZ_API TezEffectBrepFace : public TezMultiPassEffect
{
    TEZ_TYPIFIED_CLASS(TezEffectBrepFace)
public:
    bool RenderPerPass() const override { return false; }
    void StartEffect(TezSceneDrawData const& data, unsigned pass) override;

protected:
    TezEffectBrepFace();
};
