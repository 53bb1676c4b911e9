// The end of the process, for a thread that is inside a call.
//
// When Python ends while a thread waits to take its lock again, it ends that thread by unwinding
// its stack. The thread does not hold the lock, so no object may be touched on the way, which rules
// out every destructor; and a catch (...) or a noexcept would abort the process. The personality
// routine is what an unwinder asks about each frame, so it answers here for all frames of the
// module at once: such an unwinding finds nothing to do.

#include <unwind.h>

// The linker sends every use of __gxx_personality_v0 to the second of these, and the first one is
// the routine itself.
extern "C" _Unwind_Reason_Code __real___gxx_personality_v0(int version, _Unwind_Action actions,
                                                           _Unwind_Exception_Class thrown_by,
                                                           _Unwind_Exception* thrown,
                                                           _Unwind_Context* frame);

extern "C" _Unwind_Reason_Code __wrap___gxx_personality_v0(int version, _Unwind_Action actions,
                                                           _Unwind_Exception_Class thrown_by,
                                                           _Unwind_Exception* thrown,
                                                           _Unwind_Context* frame) {
  if ((actions & _UA_FORCE_UNWIND) != 0) return _URC_CONTINUE_UNWIND;
  return __real___gxx_personality_v0(version, actions, thrown_by, thrown, frame);
}
