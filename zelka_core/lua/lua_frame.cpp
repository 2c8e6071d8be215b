#include "zelka_core/lua/lua_frame.h"

namespace ZelkaCore {
namespace {

constexpr std::size_t kNameShown = 100;     // bytes of a function's name
constexpr int kMostFrames = LUAI_MAXSTACK;  // a stack that has more is broken

}  // namespace

void AddFrame(const char* lead, lua_State* thread, lua_Debug& activation, BoundedText& text) {
    lua_getinfo(thread, "Slnt", &activation);
    (void)text.Add(lead).AddShown(activation.short_src, sizeof activation.short_src).Add(":");
    if (activation.currentline > 0) {
        (void)text.Add(std::int64_t{activation.currentline}).Add(":");
    }
    (void)text.Add(" in ");
    if (*activation.namewhat != '\0') {
        (void)text.Add("function '").AddShown(activation.name, kNameShown).Add("'");
    } else if (*activation.what == 'm') {
        (void)text.Add("main chunk");
    } else if (*activation.what == 'C') {
        (void)text.Add("?");
    } else {
        (void)text.Add("function <")
            .AddShown(activation.short_src, sizeof activation.short_src)
            .Add(":")
            .Add(std::int64_t{activation.linedefined})
            .Add(">");
    }
    if (activation.istailcall != 0) {
        (void)text.Add(lead).Add("(...tail calls...)");
    }
}

int CountFrames(lua_State* thread, int from) {
    lua_Debug frame;
    int beyond = from + 1;
    while (beyond < kMostFrames && lua_getstack(thread, beyond, &frame) != 0) {
        from = beyond;
        beyond *= 2;
    }
    while (from < beyond) {
        const int middle = from + (beyond - from) / 2;
        if (lua_getstack(thread, middle, &frame) != 0) {
            from = middle + 1;
        } else {
            beyond = middle;
        }
    }
    return from;
}

}  // namespace ZelkaCore
