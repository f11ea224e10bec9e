#pragma once

// Qt WebEngine needs a few settings before the application object exists: shared OpenGL
// contexts, a platform (off-screen when there is no display) and, when running as root,
// Chromium without its sandbox (it refuses to start otherwise).
namespace RenderEnvironment {

// Call before constructing the QGuiApplication/QApplication.
void prepare();

// For a program that returns when its work is done (the command line): the engine's helper
// processes (zygote, renderers, utilities) end a moment after the application object is
// gone, and renderers that outlive their zygote would be left to init. adoptHelpers() makes
// this process the one they fall back to; call it before the application object exists.
// awaitHelpers(), after the application object is destroyed, waits for every child process
// to end and stops the ones that are still there after `milliseconds`.
void adoptHelpers();
void awaitHelpers(int milliseconds = 5000);

} // namespace RenderEnvironment
