// Process control's failure texts: two lines an id, a sentinel at the end.
#include "xpce.h"

const xpce_message err_list[21] = {
    {0x700, "Actual size %u != sent size %u"},
    {0x700, "Socket is %u, Msg is %s"},
    {0x701, "Total Message size %u != sent size %u"},
    {0x701, "Socket is %u, Msg is %s"},
    {0x702, "Invalid process type of 0x%X passed to"},
    {0x702, "xpce_setup()"},
    {0x710, "pthread_key_create returned rc= %u"},
    {0x710, "trying to create key for stacks"},
    {0x711, "pthread_setspecific returned rc= %u"},
    {0x711, "trying to set alternate stack value"},
    {0x712, "pthread_setspecific returned rc= %u"},
    {0x712, "trying to set thread data value"},
    {0x713, "Unable to send registration request to"},
    {0x713, "Daemon process. rc = %u"},
    {0x714, "Unable to send de-registration request to"},
    {0x714, "Daemon process. rc = %u"},
    {0x715, "Thread ended without performing the correct"},
    {0x715, "number of xpce_unsets. Active Thread Count= %d"},
    {0x716, "Global Daemon process de-registration not performed"},
    {0x716, "because we appear to be handling a trap"},
    {0x9999, "Dummy Message"},
};

const xpce_message_info err_info = {21, err_list};
