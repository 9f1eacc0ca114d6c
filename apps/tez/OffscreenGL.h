#pragma once
// TezOffscreenGL: a GL context on a hidden window of its own, made, bound and
// with GL's entry points loaded, for a command that draws off-screen; the
// context, the window's device context and the window go when it dies. The
// command's TezHostApplication takes the handles and must die first. Where
// no context can be made, Ok() is false, the handles are null and Problem()
// says why (a line, newline-ended); a context not wanted is not made.
//
// TezPictureArgs: the -o/--output and --size WxH options of a command that
// writes one picture, the defaults shown in the help.

#include "platform/Handles.h"

#include <string>
#include <utility>

namespace CLI {
class App;
}

class TezOffscreenGL
{
public:
    // The window's size matters only to what draws into the window itself.
    explicit TezOffscreenGL(bool wanted = true, int width = 16, int height = 16);
    ~TezOffscreenGL();
    TezOffscreenGL(TezOffscreenGL const&) = delete;
    TezOffscreenGL& operator=(TezOffscreenGL const&) = delete;

    bool Ok() const { return m_context != nullptr; }
    std::string const& Problem() const { return m_problem; }
    HGLRC GetContext() const { return m_context; }
    HWND GetWindow() const { return m_context ? m_window : nullptr; }
    // Binds the context again, after a view has bound its own surface.
    bool MakeCurrent() const;

private:
    HWND m_window = nullptr;
    HDC m_dc = nullptr;
    HGLRC m_context = nullptr;
    std::string m_problem;
};

struct TezPictureArgs
{
    // The defaults.
    TezPictureArgs(std::string name, int w, int h) : output(std::move(name)), width(w), height(h) {}

    std::string output;
    int width = 0;
    int height = 0;
    std::string size; // as given; empty: the default

    // The name is checked by TezCliImageName(withExr), the size from 16 to 8192.
    void AddOptions(CLI::App& cli, bool withExr);
    // After parsing: the size given into width and height.
    void Finish();
};
