#pragma once

// Qt WebEngine needs a few settings before the application object exists: shared OpenGL
// contexts, a platform (off-screen when there is no display) and, when running as root,
// Chromium without its sandbox (it refuses to start otherwise).
namespace RenderEnvironment {

// Call before constructing the QGuiApplication/QApplication.
void prepare();

} // namespace RenderEnvironment
