#pragma once

#include <lua.hpp>

namespace ZelkaCore {

// Makes `require "process.core"` give what the Lua module `process` is built on: a table with one
// function.
//
//   start(options)      starts the program of process.run's options: the object, and the timeout in
//                       milliseconds if there is one; nil and why if it cannot be started. A Lua
//                       error names process.run and the option that is wrong.
//
// The object's methods; none of them waits:
//
//   descriptor(name)    what to wait for, nil once there is nothing: "ended", "out" and "err" for
//                       reading, "input" for writing
//   transfer()          takes some of the outputs and gives some of the input
//   kill()              kills the program with its group; returns true, or nil and why
//   collect()           the result of a program that has ended, without `timed_out`; or nil and why
//   abandon()           kills the program, if it was not collected, and collects it unseen, which
//                       takes a moment; the garbage collector does the same
//
// May raise a Lua error.
void PreloadProcess(lua_State* L);

}  // namespace ZelkaCore
