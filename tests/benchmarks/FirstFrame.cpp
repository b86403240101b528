// Preloaded into a program with a window: writes the moment at which the first picture of a window goes to
// the X server, in nanoseconds of the monotonic clock, into the file that QELMO_FIRST_FRAME names.

#include <dlfcn.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

// Icons and pointers are smaller.
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

/// The toolkit's plugin brings the library along for itself only, so it is not the next one after this.
template <typename Function>
Function* original(const char* library, const char* name) {
    return reinterpret_cast<Function*>(dlsym(dlopen(library, RTLD_LAZY), name));
}

}  // namespace

extern "C" __attribute__((visibility("default"))) xcb_void_cookie_t xcb_shm_put_image(
    xcb_connection_t* connection, xcb_drawable_t drawable, xcb_gcontext_t context, uint16_t totalWidth,
    uint16_t totalHeight, uint16_t sourceX, uint16_t sourceY, uint16_t sourceWidth, uint16_t sourceHeight,
    int16_t x, int16_t y, uint8_t depth, uint8_t format, uint8_t sendEvent, xcb_shm_seg_t segment,
    uint32_t offset) {
    note(sourceWidth);
    return original<decltype(xcb_shm_put_image)>("libxcb-shm.so.0", "xcb_shm_put_image")(
        connection, drawable, context, totalWidth, totalHeight, sourceX, sourceY, sourceWidth, sourceHeight,
        x, y, depth, format, sendEvent, segment, offset);
}

extern "C" __attribute__((visibility("default"))) xcb_void_cookie_t xcb_put_image(
    xcb_connection_t* connection, uint8_t format, xcb_drawable_t drawable, xcb_gcontext_t context,
    uint16_t width, uint16_t height, int16_t x, int16_t y, uint8_t leftPad, uint8_t depth, uint32_t length,
    const uint8_t* bytes) {
    note(width);
    return original<decltype(xcb_put_image)>("libxcb.so.1", "xcb_put_image")(
        connection, format, drawable, context, width, height, x, y, leftPad, depth, length, bytes);
}
