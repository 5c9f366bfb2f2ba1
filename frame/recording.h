// The recording of a failure may meet the failure again, a dead disk for one. While a thread records one, what else it
// meets is traced and reported, not recorded: nothing recurses.
#ifndef PLOV_FRAME_RECORDING_H
#define PLOV_FRAME_RECORDING_H

namespace plov::frame {

class Recording {
 public:
  Recording() : outer_(active_) { active_ = true; }
  ~Recording() { active_ = outer_; }
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;

  static bool active() { return active_; }

 private:
  static inline thread_local bool active_ __attribute__((tls_model("initial-exec"))) = false;
  const bool outer_;
};

}  // namespace plov::frame

#endif
