#pragma once

#include <lua.hpp>

#include "zelka_core/store/dom.h"

// Pushes the store as a Lua value of the class `SLB.Dom`, or nil for null. Every call makes a new
// userdata; the class is defined at the first. Collecting a userdata leaves the store alone.
// May raise a Lua error.
void PushDom(lua_State* L, ZelkaCore::CDom* dom);

// The `__gc` of the class: destroys or deletes an object that its userdata owns.
int DomUserdataGc(lua_State* L);
