// Preloaded into a program with a window. Writes the time at which the window's first picture goes to the X
// server, in nanoseconds of the monotonic clock, to the file that QELMO_FIRST_FRAME names. Qt calls this
// function if it shares no memory with the server.

#include <dlfcn.h>
#include <xcb/xcb.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

// Icons and cursors are smaller.
constexpr unsigned smallestFrame = 300;

void note(unsigned width) {
    static bool noted = false;
    const char* const path = std::getenv("QELMO_FIRST_FRAME");
    if (noted || width < smallestFrame || path == nullptr) return;
    noted = true;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    if (FILE* const file = std::fopen(path, "w"); file != nullptr) {
        std::fprintf(file, "%lld\n", static_cast<long long>(now.tv_sec) * 1'000'000'000 + now.tv_nsec);
        std::fclose(file);
    }
}

}  // namespace

extern "C" __attribute__((visibility("default"))) xcb_void_cookie_t xcb_put_image(
    xcb_connection_t* connection, uint8_t format, xcb_drawable_t drawable, xcb_gcontext_t context,
    uint16_t width, uint16_t height, int16_t x, int16_t y, uint8_t leftPad, uint8_t depth, uint32_t length,
    const uint8_t* bytes) {
    note(width);
    // Qt's plugin loads the library with local scope, so RTLD_NEXT would not find it.
    auto* const original =
        reinterpret_cast<decltype(xcb_put_image)*>(dlsym(dlopen("libxcb.so.1", RTLD_LAZY), "xcb_put_image"));
    return original(connection, format, drawable, context, width, height, x, y, leftPad, depth, length,
                    bytes);
}
