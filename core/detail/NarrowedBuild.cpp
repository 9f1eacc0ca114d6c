// Compiled only into a library narrowed to the lower layers (TEZ_SUBSYSTEMS
// without render or document). The application's interface names the render
// view manager and the document; in such a build neither can exist, the
// references to them stay null, and these stand-ins give those references
// the counting functions they link against.

#include "core/Application.h" // the exported declarations of the counting functions

#ifndef TEZ_HAVE_RENDER
class TezRenderViewManager : public TezRefCounter
{
};
TEZ_DEFINE_REF_FUNCTIONS(TezRenderViewManager)
#endif

#ifndef TEZ_HAVE_DOCUMENT
class TezDocument : public TezRefCounter
{
};
TEZ_DEFINE_REF_FUNCTIONS(TezDocument)
#endif
