#pragma once
// TezScene: the tree of scene objects that a view draws.
// Scene events carry the scene they belong to, so a subscriber can listen to
// one scene only.

#include "core/RefCounter.h"

TEZ_DECLARE_REF_FUNCTIONS(TezScene)

class TEZ_API TezScene : public TezRefCounter
{
public:
    static TezRef<TezScene> Create();
    ~TezScene() override = default;

private:
    TezScene() = default;
};
