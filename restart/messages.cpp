// Restart's failure texts: one or two lines an id, a sentinel at the end.
#include "xbt.h"

const xbt_message bt_err_list[16] = {
    {0x0, "lookup_err: Error #1-> No Known message # %4X found!!"},
    {0x1, "lookup_err: Error #2-> No Known message # %4X found!!"},
    {0x2, "lookup_err: Part number %u is incorrect. message # %4X"},
    {0x3, "lookup_err: Part number %u is incorrect for message # %4X"},
    {0x3081, "_fmalloc failed. Requested Size was %u."},
    {0x3580, "Error Message Exceeds maximum length of %u."},
    {0x3580, "Length is %u. Message # %4.4X."},
    {0x5080, "xnbCreateStringFromUTF8 returned %u"},
    {0x5081, "xnbReleaseObjectReference returned %u"},
    {0x5082, "xnbCallStaticIntMethod returned %u"},
    {0x5083, "Java returned %u from the %s method invocation"},
    {0x5084, "Java shutdown not possible, attempting a local"},
    {0x5084, "shutdown for >%s<."},
    {0x5085, "system invocation failed with errno= %u."},
    {0x5085, "error is >%s<"},
    {0xFF00, "Dummy Message"},
};

const xbt_message_info bt_err_info = {16, bt_err_list};
