#include "sim/map.h"

#include <errno.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include "sim/process_mutex.h"
#include "xtr.h"

void* SIM_array[2];
xsim_header_block* pXsim_ptr;

namespace plov::sim {
namespace {

void* data_selector[2];
Pass passes[2];           // valid when SIM_array[pass] is set
uintptr_t xsim_addr_ind;  // the first access has been made; the first array's address

bool attached(int pass) {
  return __atomic_load_n(&SIM_array[pass], __ATOMIC_ACQUIRE) != nullptr;
}

// A thread that comes while another one of this process loads waits for it.
bool loaded_by_now(int pass) {
  if (!header_attached()) return false;
  if (loaded(pass)) return true;
  const ProcessLock lock;
  return loaded(pass);
}

uint32_t attach_pass(int pass) {
  if (attached(pass) || !loaded(pass)) return 0;
  const xsim_pass_record& record = pXsim_ptr->pass[pass];
  Segment array, data;
  if (!array.attach(record.array_id, kArrayKeys[pass])) return XSIM_NO_ARRAY;
  if (!data.attach(record.data_id, kDataKeys[pass])) return XSIM_NO_DATA_AREA;
  publish(pass, array, data);
  return 0;
}

// Both passes, as far as they are loaded; that the other one cannot be had is no failure of this one.
uint32_t first_access(int pass) {
  const ProcessLock lock;
  if (xsim_addr_ind == 0) xtr_trace("XSIMCHKF: First SIM access by this process.  Accessing SIM shared memory");
  const uint32_t code = attach_pass(pass);
  attach_pass(1 - pass);
  if (code == 0) __atomic_store_n(&xsim_addr_ind, reinterpret_cast<uintptr_t>(SIM_array[pass]), __ATOMIC_RELEASE);
  return code;
}

uint32_t find(const Place& place, const Pass** found) {
  if (!loaded_by_now(place.pass)) return XSIM_NOT_LOADED;
  if (__atomic_load_n(&xsim_addr_ind, __ATOMIC_ACQUIRE) == 0 || !attached(place.pass))
    if (const uint32_t code = first_access(place.pass); code != 0) return code;
  const Pass& pass = passes[place.pass];
  const int32_t field_count = __atomic_load_n(&pXsim_ptr->pass[place.pass].field_count, __ATOMIC_RELAXED);
  if (static_cast<int64_t>(place.index) > field_count || place.slot >= pass.entries) {
    xtr_trace("XSIMCHKF: XSIM_ERR_UNKNOWN_FIELD for field %d. (max field = %d)", place.index, field_count);
    return XSIM_UNKNOWN_FIELD;
  }
  *found = &pass;
  return 0;
}

}  // namespace

bool Segment::attach(int32_t id, uint32_t key) {
  struct shmid_ds status;
  if (shmctl(id, IPC_STAT, &status) != 0) return false;
  if (static_cast<uint32_t>(status.shm_perm.__key) != key) {
    errno = EINVAL;
    return false;
  }
  void* const address = shmat(id, nullptr, 0);
  if (address == reinterpret_cast<void*>(-1)) return false;
  address_ = address;
  size_ = status.shm_segsz;
  return true;
}

void Segment::detach() {
  if (address_) shmdt(address_);
  address_ = nullptr;
}

void* Segment::keep() {
  void* const address = address_;
  address_ = nullptr;
  return address;
}

void publish(int pass, Segment& array, Segment& data) {
  passes[pass].entries = array.size() / sizeof(xsim_entry);
  passes[pass].data_size = data.size();
  passes[pass].array = static_cast<xsim_entry*>(array.keep());
  data_selector[pass] = data.keep();
  passes[pass].data = static_cast<uint8_t*>(data_selector[pass]);
  __atomic_store_n(&SIM_array[pass], passes[pass].array, __ATOMIC_RELEASE);
}

uint32_t xsim_check(const Place& place, const Pass** found) {
  xtr_trace("XSIMCHKF: -> xsim_check");
  const uint32_t code = find(place, found);
  xtr_trace("XSIMCHKF: <- xsim_check");
  return code;
}

}  // namespace plov::sim
