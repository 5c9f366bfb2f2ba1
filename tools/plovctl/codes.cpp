#include "codes.h"

#include <cstring>

#include "hex.h"
#include "pce_wire.h"
#include "xact.h"
#include "xbt.h"
#include "xdfc.h"
#include "xlog.h"
#include "xmis.h"
#include "xnb.h"
#include "xpce.h"
#include "xsim.h"

namespace plov::ctl {
namespace {

constexpr const char* kCaller = "The caller handed over a bad pointer: correct the calling program.";
constexpr const char* kDisk = "Look at the disk, the free space and the kernel's messages; then repeat.";
constexpr const char* kMemory = "The machine or the process is out of memory: free some, then repeat.";
constexpr const char* kDamage =
    "A damaged log is saved as wexosave.log and begun anew. Look with: plovctl show, check, dump --file "
    "'!wexosave.log'.";
constexpr const char* kOpening = "Look at the file's owner and mode and at its directory: plovctl path wexolog.log.";
constexpr const char* kConfiguration =
    "Look for wexoinit.trm with: plovctl path wexoinit.trm. A working one comes from: plovctl init.";
constexpr const char* kLock =
    "Another process may hold the lock, or System V semaphores are used up: see ipcs -s, and the trace.";
constexpr const char* kMapFiles =
    "Look for the map's files with: plovctl path ywkzsim.dat. New ones come from: plovctl sim build, plovctl init.";
constexpr const char* kSharedMemory =
    "See ipcs -m: a segment with a key from 0x96728002 on is not the library's, or was removed.";
constexpr const char* kJava =
    "See why the Java side cannot be reached: plovctl trace --tag XBT. The local command was run in its place.";
constexpr const char* kTable = "Look with: plovctl path NAME. The file's table is described in ywkddfc.trm(5).";

constexpr const char* kDirectory =
    "Look at the directory, its owner and mode; the system's reason is in the trace: plovctl trace --tag XDFC.";

constexpr const char* kReport = "Read it with: plovctl show --crash.";
constexpr const char* kAsk = "Nothing. See whom the daemon knows with: plovpced --table.";

constexpr const char* kRecord = "xlog_record";
constexpr const char* kSysevent = "xlog_sysevent";
constexpr const char* kE4Sysevent = "xlog_e4_sysevent";
constexpr const char* kEventData = "xlog_append_event_data";
constexpr const char* kPurge = "xlog_log_purge";
constexpr const char* kMicrocode = "xlog_microcode_log, xlog_microcode_log2";
constexpr const char* kRetrieve = "xlog_retrieve";
constexpr const char* kFree = "xlog_free";
constexpr const char* kUpdateLog = "xlog_update_log";
constexpr const char* kUpdateType = "xlog_update_type";
constexpr const char* kMark = "xlog_mark_log_for_delete";
constexpr const char* kSnapshot = "xlog_take_snapshot";
constexpr const char* kEncode = "xlog_mem_encode";
constexpr const char* kDecode = "xlog_mem_decode";
constexpr const char* kOpen = "opening a log file";
constexpr const char* kNewFile = "making a new log file; writing the logcomp event";
constexpr const char* kRoom = "making room in a full log";
constexpr const char* kConfig = "reading wexoinit.trm";
constexpr const char* kFiles = "the file services (xdfc)";
constexpr const char* kTell = "xp11_request";
constexpr const char* kCrashFile = "xp11_critical";
constexpr const char* kListing = "xdfc_count_files, xdfc_emul_xrem_dir, xdfc_emul_ftp_nlst";
constexpr const char* kCount = "xdfc_count_files";
constexpr const char* kReplies = "xdfc_emul_xrem_dir, xdfc_emul_ftp_nlst";
constexpr const char* kSpawn = "xmis_spawn_pgm";
constexpr const char* kSimLoad = "loading the map (xsim)";
constexpr const char* kSimField = "the field operations (xsim)";
constexpr const char* kRestart = "xbt_restart";
constexpr const char* kBridge = "a call of Java";
constexpr const char* kCrash = "an event PCERROR";
constexpr const char* kToDaemon = "a message to the daemon";
constexpr const char* kFromDaemon = "an answer of the daemon";
constexpr const char* kSetup = "xpce_setup, xpce_unset";
constexpr const char* kProbe = "the pointer probes (xpce)";

// clang-format off
constexpr Code kCodes[] = {
    {Family::sysrc, 0, "", "every function", "success", "Nothing."},
    {Family::sysrc, 1, "", "every function", "the comprc pointer is unusable; nothing was written",
     "Correct the calling program. From xdfc_query_file_location it is also: no entry of the path table matches."},
    {Family::sysrc, 2, "", "every function", "a bad argument or a refused request", "The comprc says which."},
    {Family::sysrc, 8, "", "every function", "a failed system service, or a failure that was recorded in the log",
     "The comprc says which; look at the newest events with: plovctl show -n 5."},

    {Family::xlog, XLOG_RECORD_BAD_REQUEST, "XLOG_RECORD_BAD_REQUEST", kRecord, "the request is not usable memory", kCaller},
    {Family::xlog, XLOG_RECORD_BAD_NODE, "XLOG_RECORD_BAD_NODE", kRecord, "a data node is not usable memory", kCaller},
    {Family::xlog, XLOG_RECORD_BAD_DATA, "XLOG_RECORD_BAD_DATA", kRecord, "a node's data cannot be read", kCaller},
    {Family::xlog, XLOG_ERR_NO_LOCK, "XLOG_ERR_NO_LOCK", kRecord, "the log lock could not be taken", kLock},
    {Family::xlog, XLOG_RECORD_HEADER_ERROR, "XLOG_RECORD_HEADER_ERROR", kRecord, "writing the log header failed", kDisk},
    {Family::xlog, XLOG_RECORD_HEADER_SHORT, "XLOG_RECORD_HEADER_SHORT", kRecord, "the log header was written short", kDisk},
    {Family::xlog, XLOG_RECORD_BLOCK_ERROR, "XLOG_RECORD_BLOCK_ERROR", kRecord, "writing a block failed", kDisk},
    {Family::xlog, XLOG_RECORD_BLOCK_SHORT, "XLOG_RECORD_BLOCK_SHORT", kRecord, "a block was written short", kDisk},
    {Family::xlog, XLOG_RECORD_OWN_BLOCK_ERROR, "XLOG_RECORD_OWN_BLOCK_ERROR", kRecord,
     "writing the UTC offset block or the standard block failed", kDisk},
    {Family::xlog, XLOG_RECORD_OWN_BLOCK_SHORT, "XLOG_RECORD_OWN_BLOCK_SHORT", kRecord,
     "the UTC offset block or the standard block was written short", kDisk},
    {Family::xlog, XLOG_RECORD_MODIFY_ERROR, "XLOG_RECORD_MODIFY_ERROR", kRecord, "writing the modify block failed", kDisk},
    {Family::xlog, XLOG_RECORD_MODIFY_SHORT, "XLOG_RECORD_MODIFY_SHORT", kRecord, "the modify block was written short", kDisk},
    {Family::xlog, XLOG_RECORD_FILE_HEADER_ERROR, "XLOG_RECORD_FILE_HEADER_ERROR", kRecord,
     "writing the file header failed; the event is not in the log", kDisk},
    {Family::xlog, XLOG_RECORD_FILE_HEADER_SHORT, "XLOG_RECORD_FILE_HEADER_SHORT", kRecord,
     "the file header was written short", kDisk},
    {Family::xlog, XLOG_RECORD_READ_ERROR, "XLOG_RECORD_READ_ERROR", kRecord, "reading the file header failed", kDisk},
    {Family::xlog, XLOG_RECORD_READ_SHORT, "XLOG_RECORD_READ_SHORT", kRecord, "the file is shorter than its header", kDamage},
    {Family::xlog, XLOG_RECORD_NO_MODIFY_MEMORY, "XLOG_RECORD_NO_MODIFY_MEMORY", kRecord, "no memory for the modify block",
     kMemory},
    {Family::xlog, XLOG_RECORD_NO_INPUT_MEMORY, "XLOG_RECORD_NO_INPUT_MEMORY", kRecord, "no memory for the input buffer",
     kMemory},
    {Family::xlog, XLOG_RECORD_TOO_MANY_BLOCKS, "XLOG_RECORD_TOO_MANY_BLOCKS", kRecord,
     "the event would have 256 blocks or more", "Record fewer blocks: the recorder's own count too."},
    {Family::xlog, XLOG_RECORD_TOO_LARGE, "XLOG_RECORD_TOO_LARGE", kRecord, "the event is larger than one log may be",
     "Record less, or raise line 4 of wexoinit.trm: it holds for files made afterwards."},
    {Family::xlog, XLOG_RECORD_NO_ROOM, "XLOG_RECORD_NO_ROOM", kRecord,
     "the log file is full, and nothing in it may be deleted",
     "Lower keep counts or priorities in wexoinit.trm: each making of room reads them. Or copy the file away and remove it."},
    {Family::xlog, XLOG_RECORD_ENCODE_FAILED, "XLOG_RECORD_ENCODE_FAILED", kRecord, "a block could not be encoded", kMemory},
    {Family::xlog, XLOG_RECORD_STANDARD_ENCODE_FAILED, "XLOG_RECORD_STANDARD_ENCODE_FAILED", kRecord,
     "the standard block could not be encoded", kMemory},

    {Family::xlog, XLOG_SYSEVENT_BAD_REQUEST, "XLOG_SYSEVENT_BAD_REQUEST", kSysevent, "the request cannot be read", kCaller},
    {Family::xlog, XLOG_SYSEVENT_BAD_NODE, "XLOG_SYSEVENT_BAD_NODE", kSysevent, "a variable's node is not usable memory", kCaller},
    {Family::xlog, XLOG_SYSEVENT_BAD_DATA, "XLOG_SYSEVENT_BAD_DATA", kSysevent,
     "a variable's data or the tower text cannot be read", kCaller},
    {Family::xlog, XLOG_E4_SYSEVENT_BAD_REQUEST, "XLOG_E4_SYSEVENT_BAD_REQUEST", kE4Sysevent,
     "the request is not usable memory", kCaller},
    {Family::xlog, XLOG_E4_SYSEVENT_BAD_EXTRA, "XLOG_E4_SYSEVENT_BAD_EXTRA", kE4Sysevent, "the extra data cannot be read", kCaller},
    {Family::xlog, XLOG_E4_SYSEVENT_BAD_NODE, "XLOG_E4_SYSEVENT_BAD_NODE", kE4Sysevent,
     "a variable's node is not usable memory", kCaller},
    {Family::xlog, XLOG_E4_SYSEVENT_BAD_DATA, "XLOG_E4_SYSEVENT_BAD_DATA", kE4Sysevent,
     "a variable's data or the tower text cannot be read", kCaller},
    {Family::xlog, XLOG_EVENT_DATA_BAD_DETAILS, "XLOG_EVENT_DATA_BAD_DETAILS", kEventData, "the details record cannot be read",
     kCaller},
    {Family::xlog, XLOG_EVENT_DATA_BAD_CURSOR, "XLOG_EVENT_DATA_BAD_CURSOR", kEventData, "the cursor is not usable memory", kCaller},
    {Family::xlog, XLOG_EVENT_DATA_BAD_REFERENCE, "XLOG_EVENT_DATA_BAD_REFERENCE", kEventData,
     "a message reference cannot be read", kCaller},
    {Family::xlog, XLOG_EVENT_DATA_NO_ROOM, "XLOG_EVENT_DATA_NO_ROOM", kEventData, "no room for an entry's length", kCaller},
    {Family::xlog, XLOG_EVENT_DATA_BAD_BUNDLE, "XLOG_EVENT_DATA_BAD_BUNDLE", kEventData, "a bundle name cannot be read", kCaller},
    {Family::xlog, XLOG_EVENT_DATA_NO_BUNDLE_ROOM, "XLOG_EVENT_DATA_NO_BUNDLE_ROOM", kEventData, "no room for a bundle name",
     kCaller},
    {Family::xlog, XLOG_EVENT_DATA_BAD_KEY, "XLOG_EVENT_DATA_BAD_KEY", kEventData, "a key name cannot be read", kCaller},
    {Family::xlog, XLOG_EVENT_DATA_NO_KEY_ROOM, "XLOG_EVENT_DATA_NO_KEY_ROOM", kEventData, "no room for a key name", kCaller},
    {Family::xlog, XLOG_EVENT_DATA_BAD_VARIABLE, "XLOG_EVENT_DATA_BAD_VARIABLE", kEventData,
     "the place of a variable's address cannot be read", kCaller},
    {Family::xlog, XLOG_EVENT_DATA_BAD_TEXT, "XLOG_EVENT_DATA_BAD_TEXT", kEventData, "a variable's text cannot be read", kCaller},
    {Family::xlog, XLOG_EVENT_DATA_NO_VARIABLE_ROOM, "XLOG_EVENT_DATA_NO_VARIABLE_ROOM", kEventData, "no room for a variable",
     kCaller},

    {Family::xlog, XLOG_PURGE_BAD_COUNT, "XLOG_PURGE_BAD_COUNT", kPurge, "the number of classes is not -1 to 256",
     "Correct the calling program."},
    {Family::xlog, XLOG_PURGE_BAD_CLASSES, "XLOG_PURGE_BAD_CLASSES", kPurge, "the purge block cannot be read", kCaller},
    {Family::xlog, XLOG_PURGE_BAD_LINK, "XLOG_PURGE_BAD_LINK", kPurge,
     "a link of a purged class does not point to an older log of it", kDamage},
    {Family::xlog, XLOG_PURGE_MARK_ERROR, "XLOG_PURGE_MARK_ERROR", kPurge, "marking the purged logs failed", kDisk},
    {Family::xlog, XLOG_PURGE_MARK_SHORT, "XLOG_PURGE_MARK_SHORT", kPurge, "the marks of the purged logs were written short",
     kDisk},
    {Family::xlog, XLOG_PURGE_HEADER_ERROR, "XLOG_PURGE_HEADER_ERROR", kPurge, "reading the log headers of a class failed", kDisk},
    {Family::xlog, XLOG_PURGE_HEADER_SHORT, "XLOG_PURGE_HEADER_SHORT", kPurge, "a log header of a class is cut off", kDamage},
    {Family::xlog, XLOG_PURGE_FILE_HEADER_ERROR, "XLOG_PURGE_FILE_HEADER_ERROR", kPurge, "reading the file header failed", kDisk},
    {Family::xlog, XLOG_PURGE_FILE_HEADER_SHORT, "XLOG_PURGE_FILE_HEADER_SHORT", kPurge,
     "the file is shorter than its header", kDamage},
    {Family::xlog, XLOG_PURGE_DELETE_FAILED, "XLOG_PURGE_DELETE_FAILED", kPurge, "the file could not be removed",
     "The reason is an errno, in the trace: look at the directory's mode and owner."},
    {Family::xlog, XLOG_PURGE_NO_LOCK, "XLOG_PURGE_NO_LOCK", kPurge, "the log lock could not be taken for a purge", kLock},
    {Family::xlog, XLOG_TRIM_BAD_NAME, "XLOG_TRIM_BAD_NAME", "xlog_trim_log", "the destination's name cannot be read", kCaller},

    {Family::xlog, XLOG_MICROCODE_BAD_COMPRC, "XLOG_MICROCODE_BAD_COMPRC", kMicrocode,
     "the comprc pointer was unusable (an event of its own)", kCaller},
    {Family::xlog, XLOG_MICROCODE_BAD_REQUEST, "XLOG_MICROCODE_BAD_REQUEST", kMicrocode,
     "the microcode request is not usable memory", kCaller},
    {Family::xlog, XLOG_MICROCODE_BAD_DATA, "XLOG_MICROCODE_BAD_DATA", kMicrocode,
     "the data of a microcode entry could not be read (an event of its own)", kCaller},

    {Family::xlog, XLOG_UPDATE_NOT_FOUND, "XLOG_UPDATE_NOT_FOUND", "the three that change a log in place",
     "no log of the file has this identity (sysrc 0)", "Look for class, type, user code and time with: plovctl show."},
    {Family::xlog, XLOG_UPDATE_NO_MODIFY_BLOCK, "XLOG_UPDATE_NO_MODIFY_BLOCK", kUpdateLog,
     "the log has no modify block (sysrc 0)", "Only logs recorded with one, such as by plovctl record --modify, can be updated."},
    {Family::xlog, XLOG_UPDATE_LOG_BAD_REQUEST, "XLOG_UPDATE_LOG_BAD_REQUEST", kUpdateLog,
     "the request or its data are not usable memory", kCaller},
    {Family::xlog, XLOG_UPDATE_LOG_BAD_LINK, "XLOG_UPDATE_LOG_BAD_LINK", kUpdateLog,
     "a link of the class chain does not point below its log", kDamage},
    {Family::xlog, XLOG_UPDATE_LOG_BAD_START, "XLOG_UPDATE_LOG_BAD_START", kUpdateLog,
     "the class chain begins outside the file", kDamage},
    {Family::xlog, XLOG_UPDATE_LOG_NO_LOCK, "XLOG_UPDATE_LOG_NO_LOCK", kUpdateLog,
     "the log lock could not be taken", kLock},
    {Family::xlog, XLOG_UPDATE_LOG_WRITE_ERROR, "XLOG_UPDATE_LOG_WRITE_ERROR", kUpdateLog,
     "writing the change failed", kDisk},
    {Family::xlog, XLOG_UPDATE_LOG_WRITE_SHORT, "XLOG_UPDATE_LOG_WRITE_SHORT", kUpdateLog,
     "the change was written short", kDisk},
    {Family::xlog, XLOG_UPDATE_LOG_FILE_HEADER_ERROR, "XLOG_UPDATE_LOG_FILE_HEADER_ERROR", kUpdateLog,
     "reading the file header failed", kDisk},
    {Family::xlog, XLOG_UPDATE_LOG_FILE_HEADER_SHORT, "XLOG_UPDATE_LOG_FILE_HEADER_SHORT", kUpdateLog,
     "the file is shorter than its header", kDamage},
    {Family::xlog, XLOG_UPDATE_LOG_HEADER_ERROR, "XLOG_UPDATE_LOG_HEADER_ERROR", kUpdateLog,
     "reading a log header failed", kDisk},
    {Family::xlog, XLOG_UPDATE_LOG_HEADER_SHORT, "XLOG_UPDATE_LOG_HEADER_SHORT", kUpdateLog,
     "a log header is cut off", kDamage},
    {Family::xlog, XLOG_UPDATE_LOG_NOT_OPEN, "XLOG_UPDATE_LOG_NOT_OPEN", kUpdateLog,
     "the log file could not be opened", kOpening},
    {Family::xlog, XLOG_UPDATE_TYPE_BAD_REQUEST, "XLOG_UPDATE_TYPE_BAD_REQUEST", kUpdateType,
     "the request is not usable memory", kCaller},
    {Family::xlog, XLOG_UPDATE_TYPE_BAD_LINK, "XLOG_UPDATE_TYPE_BAD_LINK", kUpdateType,
     "a link of the class chain does not point below its log", kDamage},
    {Family::xlog, XLOG_UPDATE_TYPE_BAD_START, "XLOG_UPDATE_TYPE_BAD_START", kUpdateType,
     "the class chain begins outside the file", kDamage},
    {Family::xlog, XLOG_UPDATE_TYPE_NO_LOCK, "XLOG_UPDATE_TYPE_NO_LOCK", kUpdateType,
     "the log lock could not be taken", kLock},
    {Family::xlog, XLOG_UPDATE_TYPE_WRITE_ERROR, "XLOG_UPDATE_TYPE_WRITE_ERROR", kUpdateType,
     "writing the change failed", kDisk},
    {Family::xlog, XLOG_UPDATE_TYPE_WRITE_SHORT, "XLOG_UPDATE_TYPE_WRITE_SHORT", kUpdateType,
     "the change was written short", kDisk},
    {Family::xlog, XLOG_UPDATE_TYPE_FILE_HEADER_ERROR, "XLOG_UPDATE_TYPE_FILE_HEADER_ERROR", kUpdateType,
     "reading the file header failed", kDisk},
    {Family::xlog, XLOG_UPDATE_TYPE_FILE_HEADER_SHORT, "XLOG_UPDATE_TYPE_FILE_HEADER_SHORT", kUpdateType,
     "the file is shorter than its header", kDamage},
    {Family::xlog, XLOG_UPDATE_TYPE_HEADER_ERROR, "XLOG_UPDATE_TYPE_HEADER_ERROR", kUpdateType,
     "reading a log header failed", kDisk},
    {Family::xlog, XLOG_UPDATE_TYPE_HEADER_SHORT, "XLOG_UPDATE_TYPE_HEADER_SHORT", kUpdateType,
     "a log header is cut off", kDamage},
    {Family::xlog, XLOG_UPDATE_TYPE_NOT_OPEN, "XLOG_UPDATE_TYPE_NOT_OPEN", kUpdateType,
     "the log file could not be opened", kOpening},
    {Family::xlog, XLOG_MARK_BAD_REQUEST, "XLOG_MARK_BAD_REQUEST", kMark,
     "the request is not usable memory", kCaller},
    {Family::xlog, XLOG_MARK_BAD_LINK, "XLOG_MARK_BAD_LINK", kMark,
     "a link of the class chain does not point below its log", kDamage},
    {Family::xlog, XLOG_MARK_BAD_START, "XLOG_MARK_BAD_START", kMark,
     "the class chain begins outside the file", kDamage},
    {Family::xlog, XLOG_MARK_NO_LOCK, "XLOG_MARK_NO_LOCK", kMark,
     "the log lock could not be taken", kLock},
    {Family::xlog, XLOG_MARK_WRITE_ERROR, "XLOG_MARK_WRITE_ERROR", kMark,
     "writing the change failed", kDisk},
    {Family::xlog, XLOG_MARK_WRITE_SHORT, "XLOG_MARK_WRITE_SHORT", kMark,
     "the change was written short", kDisk},
    {Family::xlog, XLOG_MARK_FILE_HEADER_ERROR, "XLOG_MARK_FILE_HEADER_ERROR", kMark,
     "reading the file header failed", kDisk},
    {Family::xlog, XLOG_MARK_FILE_HEADER_SHORT, "XLOG_MARK_FILE_HEADER_SHORT", kMark,
     "the file is shorter than its header", kDamage},
    {Family::xlog, XLOG_MARK_HEADER_ERROR, "XLOG_MARK_HEADER_ERROR", kMark,
     "reading a log header failed", kDisk},
    {Family::xlog, XLOG_MARK_HEADER_SHORT, "XLOG_MARK_HEADER_SHORT", kMark,
     "a log header is cut off", kDamage},
    {Family::xlog, XLOG_MARK_NOT_OPEN, "XLOG_MARK_NOT_OPEN", kMark,
     "the log file could not be opened", kOpening},

    {Family::xlog, XLOG_SNAPSHOT_LOCK, "XLOG_SNAPSHOT_LOCK", kSnapshot,
     "the log lock could not be taken or given back (error code of an entry)", kLock},
    {Family::xlog, XLOG_SNAPSHOT_MAIN, "XLOG_SNAPSHOT_MAIN", kSnapshot,
     "wexolog.log could not be copied (error code of an entry)", kDisk},
    {Family::xlog, XLOG_SNAPSHOT_E4, "XLOG_SNAPSHOT_E4", kSnapshot,
     "wexoe4.log could not be copied (error code of an entry)", kDisk},
    {Family::xlog, XLOG_SNAPSHOT_COMPRESSED, "XLOG_SNAPSHOT_COMPRESSED", kSnapshot,
     "a compressed copy could not be copied (error code of an entry)", kDisk},

    {Family::xlog, XLOG_RETRIEVE_BAD_BLOCK, "XLOG_RETRIEVE_BAD_BLOCK", kRetrieve, "the retrieve block is not usable memory",
     kCaller},
    {Family::xlog, XLOG_RETRIEVE_BAD_PATTERN, "XLOG_RETRIEVE_BAD_PATTERN", kRetrieve, "a pattern entry is not usable memory",
     kCaller},
    {Family::xlog, XLOG_RETRIEVE_BAD_PATTERN_DATA, "XLOG_RETRIEVE_BAD_PATTERN_DATA", kRetrieve,
     "a pattern's bytes cannot be read", kCaller},
    {Family::xlog, XLOG_RETRIEVE_BAD_PATTERN_MASK, "XLOG_RETRIEVE_BAD_PATTERN_MASK", kRetrieve,
     "a pattern's mask cannot be read", kCaller},
    {Family::xlog, XLOG_RETRIEVE_BAD_ID_LIST, "XLOG_RETRIEVE_BAD_ID_LIST", kRetrieve, "the list of block ids cannot be read",
     kCaller},
    {Family::xlog, XLOG_RETRIEVE_NO_START, "XLOG_RETRIEVE_NO_START", kRetrieve,
     "the class has no logs, or its newest log is said to lie beyond the data",
     "With sysrc 2 nothing is wrong: no event of that class. With sysrc 8 the file was damaged: plovctl check."},
    {Family::xlog, XLOG_RETRIEVE_BAD_LINK, "XLOG_RETRIEVE_BAD_LINK", kRetrieve, "a link does not point to an older log",
     kDamage},
    {Family::xlog, XLOG_RETRIEVE_BAD_CLASS_LINK, "XLOG_RETRIEVE_BAD_CLASS_LINK", kRetrieve,
     "a link of a class does not point to an older log", kDamage},
    {Family::xlog, XLOG_RETRIEVE_FILE_HEADER_ERROR, "XLOG_RETRIEVE_FILE_HEADER_ERROR", kRetrieve,
     "reading the file header failed", kDisk},
    {Family::xlog, XLOG_RETRIEVE_FILE_HEADER_SHORT, "XLOG_RETRIEVE_FILE_HEADER_SHORT", kRetrieve,
     "the file is shorter than its header", kDamage},
    {Family::xlog, XLOG_RETRIEVE_HEADER_ERROR, "XLOG_RETRIEVE_HEADER_ERROR", kRetrieve, "reading a log header failed", kDisk},
    {Family::xlog, XLOG_RETRIEVE_HEADER_SHORT, "XLOG_RETRIEVE_HEADER_SHORT", kRetrieve, "a log header is cut off", kDamage},
    {Family::xlog, XLOG_RETRIEVE_BLOCK_ERROR, "XLOG_RETRIEVE_BLOCK_ERROR", kRetrieve, "reading a block failed", kDisk},
    {Family::xlog, XLOG_RETRIEVE_BLOCK_SHORT, "XLOG_RETRIEVE_BLOCK_SHORT", kRetrieve, "a block is cut off", kDamage},
    {Family::xlog, XLOG_RETRIEVE_NO_ENTRY_MEMORY, "XLOG_RETRIEVE_NO_ENTRY_MEMORY", kRetrieve, "no memory for a log record",
     kMemory},
    {Family::xlog, XLOG_RETRIEVE_NO_BLOCK_MEMORY, "XLOG_RETRIEVE_NO_BLOCK_MEMORY", kRetrieve, "no memory for a block entry",
     kMemory},
    {Family::xlog, XLOG_RETRIEVE_NO_EXPANDED_MEMORY, "XLOG_RETRIEVE_NO_EXPANDED_MEMORY", kRetrieve,
     "no memory for an expanded block", kMemory},
    {Family::xlog, XLOG_RETRIEVE_NO_BUFFER, "XLOG_RETRIEVE_NO_BUFFER", "xlog_retrieve, xlog_record",
     "no memory for a work buffer (recording: XLOG_RECORD_NO_OUTPUT_MEMORY)", kMemory},
    {Family::xlog, XLOG_RECORD_NO_OUTPUT_MEMORY, "XLOG_RECORD_NO_OUTPUT_MEMORY", kRecord, "no memory for the encoder's output",
     kMemory},
    {Family::xlog, XLOG_RETRIEVE_NO_RAW_MEMORY, "XLOG_RETRIEVE_NO_RAW_MEMORY", kRetrieve, "no memory for a raw block", kMemory},
    {Family::xlog, XLOG_RETRIEVE_CORRUPT, "XLOG_RETRIEVE_CORRUPT", kRetrieve, "a log header holds impossible values", kDamage},
    {Family::xlog, XLOG_RETRIEVE_NO_LOCK, "XLOG_RETRIEVE_NO_LOCK", kRetrieve, "the log lock could not be taken", kLock},
    {Family::xlog, XLOG_FREE_BAD_BLOCK, "XLOG_FREE_BAD_BLOCK", kFree, "the retrieve block is not usable memory", kCaller},
    {Family::xlog, XLOG_FREE_BAD_ENTRY, "XLOG_FREE_BAD_ENTRY", kFree, "a log record is not usable memory", kCaller},
    {Family::xlog, XLOG_FREE_BAD_BLOCK_ENTRY, "XLOG_FREE_BAD_BLOCK_ENTRY", kFree, "a block entry is not usable memory",
     kCaller},

    {Family::xlog, XLOG_ERR_OPEN, "XLOG_ERR_OPEN", kOpen, "the log file could not be opened",
     kOpening},
    {Family::xlog, XLOG_ERR_CONFIG_SIZE, "XLOG_ERR_CONFIG_SIZE", kConfig, "wexoinit.trm was not found", kConfiguration},
    {Family::xlog, XLOG_ERR_CONFIG_OPEN, "XLOG_ERR_CONFIG_OPEN", kConfig, "wexoinit.trm could not be opened", kConfiguration},
    {Family::xlog, XLOG_ERR_WRITE_FILE_HEADER, "XLOG_ERR_WRITE_FILE_HEADER", kNewFile, "writing the file header failed", kDisk},
    {Family::xlog, XLOG_ERR_SEEK_LOG_INFO, "XLOG_ERR_SEEK_LOG_INFO", kNewFile, "the log's place could not be reached",
     kDisk},
    {Family::xlog, XLOG_ERR_WRITE_LOG_INFO_HEADER, "XLOG_ERR_WRITE_LOG_INFO_HEADER", kNewFile,
     "the log's header was written short", kDisk},
    {Family::xlog, XLOG_ERR_WRITE_LOG_INFO_DATA, "XLOG_ERR_WRITE_LOG_INFO_DATA", kNewFile,
     "the log's blocks were not written whole", kDisk},
    {Family::xlog, XLOG_ERR_READ_FILE_HEADER, "XLOG_ERR_READ_FILE_HEADER", kOpen, "the file is shorter than its header",
     kDamage},
    {Family::xlog, XLOG_ERR_CONFIG_READ, "XLOG_ERR_CONFIG_READ", kConfig, "reading wexoinit.trm failed", kConfiguration},
    {Family::xlog, XLOG_ERR_CONFIG_SHORT, "XLOG_ERR_CONFIG_SHORT", kConfig, "wexoinit.trm was read short", kConfiguration},
    {Family::xlog, XLOG_ERR_CLOSE, "XLOG_ERR_CLOSE", "closing a log file", "the log file could not be closed", kDisk},
    {Family::xlog, XLOG_ERR_CONFIG_CLOSE, "XLOG_ERR_CONFIG_CLOSE", kConfig, "wexoinit.trm could not be closed", kDisk},
    {Family::xlog, XLOG_ERR_CONFIG_MEMORY, "XLOG_ERR_CONFIG_MEMORY", kConfig, "no memory for wexoinit.trm", kMemory},
    {Family::xlog, XLOG_ERR_CONFIG_CLASS_MEMORY, "XLOG_ERR_CONFIG_CLASS_MEMORY", kConfig, "no memory for a class record",
     kMemory},
    {Family::xlog, XLOG_ERR_CONFIG_TYPE_MEMORY, "XLOG_ERR_CONFIG_TYPE_MEMORY", kConfig, "no memory for a type record", kMemory},
    {Family::xlog, XLOG_ERR_NAME_TOO_LONG, "XLOG_ERR_NAME_TOO_LONG", kOpen, "a short log name has more than 4 characters",
     "Use at most 4 characters, or \"!\" and a file name or path."},

    {Family::xlog, XLOG_ERR_ROOM_NO_LENGTH, "XLOG_ERR_ROOM_NO_LENGTH", kRoom,
     "a log has a length that no log can have", kDamage},
    {Family::xlog, XLOG_ERR_ROOM_MARK_NO_LENGTH, "XLOG_ERR_ROOM_MARK_NO_LENGTH", kRoom,
     "a log that might be deleted has a length that no log can have", kDamage},
    {Family::xlog, XLOG_ERR_ROOM_CLASS_START, "XLOG_ERR_ROOM_CLASS_START", kRoom,
     "the newest log of a class is not in the file", kDamage},
    {Family::xlog, XLOG_ERR_ROOM_CLASS_LINK, "XLOG_ERR_ROOM_CLASS_LINK", kRoom,
     "a link of a class does not point to an older log of that class", kDamage},
    {Family::xlog, XLOG_ERR_ROOM_REOPEN, "XLOG_ERR_ROOM_REOPEN", kRoom,
     "the log could not be opened again after its copy was made", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_KEPT_ERROR, "XLOG_ERR_ROOM_KEPT_ERROR", kRoom,
     "writing the priorities of kept logs failed", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_FILE_HEADER_ERROR, "XLOG_ERR_ROOM_FILE_HEADER_ERROR", kRoom,
     "writing the file header behind the logcomp event failed", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_FILE_HEADER_SHORT, "XLOG_ERR_ROOM_FILE_HEADER_SHORT", kRoom,
     "the file header behind the logcomp event was written short", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_DELETED_ERROR, "XLOG_ERR_ROOM_DELETED_ERROR", kRoom,
     "writing the marks of deleted logs failed", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_DELETED_SHORT, "XLOG_ERR_ROOM_DELETED_SHORT", kRoom,
     "the marks of deleted logs were written short", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_MARK_HEADER_ERROR, "XLOG_ERR_ROOM_MARK_HEADER_ERROR", kRoom,
     "writing the mark that room is being made failed", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_MARK_HEADER_SHORT, "XLOG_ERR_ROOM_MARK_HEADER_SHORT", kRoom,
     "the mark that room is being made was written short", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_DATA_ERROR, "XLOG_ERR_ROOM_DATA_ERROR", kRoom, "moving logs failed", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_DATA_WRITTEN_SHORT, "XLOG_ERR_ROOM_DATA_WRITTEN_SHORT", kRoom,
     "moved logs were written short", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_END_HEADER_ERROR, "XLOG_ERR_ROOM_END_HEADER_ERROR", kRoom,
     "writing the file header behind moved logs failed", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_END_HEADER_SHORT, "XLOG_ERR_ROOM_END_HEADER_SHORT", kRoom,
     "the file header behind moved logs was written short", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_KEPT_SHORT, "XLOG_ERR_ROOM_KEPT_SHORT", kRoom,
     "the priorities of kept logs were written short", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_LAST_BLOCK_SHORT, "XLOG_ERR_ROOM_LAST_BLOCK_SHORT", kRoom,
     "the blocks of the logcomp event were written short", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_TALLY_ERROR, "XLOG_ERR_ROOM_TALLY_ERROR", kRoom,
     "reading the logs for the tally failed", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_TALLY_SHORT, "XLOG_ERR_ROOM_TALLY_SHORT", kRoom,
     "a log that a class names is cut off", kDamage},
    {Family::xlog, XLOG_ERR_ROOM_START_SEEK, "XLOG_ERR_ROOM_START_SEEK", kRoom,
     "reading up to the first deleted log failed", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_START_SHORT, "XLOG_ERR_ROOM_START_SHORT", kRoom,
     "a log before the first deleted one is cut off", kDamage},
    {Family::xlog, XLOG_ERR_ROOM_MOVE_SEEK, "XLOG_ERR_ROOM_MOVE_SEEK", kRoom, "reading the logs to be moved failed", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_MOVE_SHORT, "XLOG_ERR_ROOM_MOVE_SHORT", kRoom, "a log to be moved is cut off", kDamage},
    {Family::xlog, XLOG_ERR_ROOM_DATA_SHORT, "XLOG_ERR_ROOM_DATA_SHORT", kRoom,
     "the blocks of a log to be moved are cut off", kDamage},
    {Family::xlog, XLOG_ERR_ROOM_MARK_SEEK, "XLOG_ERR_ROOM_MARK_SEEK", kRoom,
     "reading the logs to be marked as deleted failed", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_MARK_SHORT, "XLOG_ERR_ROOM_MARK_SHORT", kRoom,
     "a log to be marked as deleted is cut off", kDamage},
    {Family::xlog, XLOG_ERR_ROOM_NEWEST_SEEK, "XLOG_ERR_ROOM_NEWEST_SEEK", kRoom,
     "reading the newest log of a file whose prune was broken off failed", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_NEWEST_SHORT, "XLOG_ERR_ROOM_NEWEST_SHORT", kRoom,
     "the newest log of a file whose prune was broken off is cut off", kDamage},
    {Family::xlog, XLOG_ERR_ROOM_CLOSE, "XLOG_ERR_ROOM_CLOSE", kRoom,
     "the log could not be closed before its copy was made", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_SHORTEN, "XLOG_ERR_ROOM_SHORTEN", kRoom, "the file could not be shortened to its logs", kDisk},
    {Family::xlog, XLOG_ERR_ROOM_NO_MEMORY, "XLOG_ERR_ROOM_NO_MEMORY", kRoom, "no memory to make room in", kMemory},

    {Family::xlog, XLOG_ENCODE_BAD_ARGUMENT, "XLOG_ENCODE_BAD_ARGUMENT", "xlog_mem_encode, xlog_mem_decode",
     "the block or its buffers are not usable memory (decoding: XLOG_DECODE_BAD_ARGUMENT)", kCaller},
    {Family::xlog, XLOG_ENCODE_NO_CODES, "XLOG_ENCODE_NO_CODES", kEncode, "no memory for the code buffer", kMemory},
    {Family::xlog, XLOG_ENCODE_NO_TABLE, "XLOG_ENCODE_NO_TABLE", kEncode, "no memory for search structure 1", kMemory},
    {Family::xlog, 0x9003, "", kEncode, "no memory for search structure 2", kMemory},
    {Family::xlog, 0x9004, "", kEncode, "no memory for search structure 3", kMemory},
    {Family::xlog, 0x9005, "", kEncode, "no memory for search structure 4", kMemory},
    {Family::xlog, 0x9006, "", kEncode, "no memory for search structure 5", kMemory},
    {Family::xlog, XLOG_DECODE_NO_CODES, "XLOG_DECODE_NO_CODES", kDecode, "no memory for the code buffer", kMemory},
    {Family::xlog, XLOG_DECODE_NO_STAGING, "XLOG_DECODE_NO_STAGING", kDecode, "no memory for the output stage", kMemory},
    {Family::xlog, XLOG_DECODE_NO_DICTIONARY, "XLOG_DECODE_NO_DICTIONARY", kDecode, "no memory for the dictionary", kMemory},
    {Family::xlog, XLOG_ENCODE_CUT, "XLOG_ENCODE_CUT", kEncode, "codes cut at the output's capacity, main loop",
     "Give the encoder a larger output; the block is then stored plain."},
    {Family::xlog, 0x9012, "", kEncode, "codes cut at the output's capacity, end code 1", "As 0x9011."},
    {Family::xlog, 0x9013, "", kEncode, "codes cut at the output's capacity, end code 2", "As 0x9011."},
    {Family::xlog, 0x9014, "", kEncode, "codes cut at the output's capacity, end code 3", "As 0x9011."},
    {Family::xlog, XLOG_DECODE_CUT, "XLOG_DECODE_CUT", kDecode, "the block is damaged, or its output does not fit",
     "Look at the file with: plovctl check."},

    {Family::xp11, XP11_BAD_EVENT, "XP11_BAD_EVENT", "xp11_request, xp11_critical", "the event block cannot be read", kCaller},
    {Family::xp11, XP11_NOT_TOLD, "XP11_NOT_TOLD", kTell, "problem analysis was not told of the event; a crash file was attempted",
     "See that the Java side runs and the system information map is loaded; why it failed: plovctl trace --tag XP11PA."},
    {Family::xp11, XP11_CRASH_WRITE, "XP11_CRASH_WRITE", kCrashFile, "writing the crash file failed", kDisk},
    {Family::xp11, XP11_CRASH_CLOSE, "XP11_CRASH_CLOSE", kCrashFile, "closing the crash file failed", kDisk},
    {Family::xp11, XP11_CRASH_DIRECTORY, "XP11_CRASH_DIRECTORY", kCrashFile, "the crash directory could not be made",
     "Look at what lies there and who may write: plovctl path PA_CRASH_PATH."},
    {Family::xp11, XP11_CRASH_CREATE, "XP11_CRASH_CREATE", kCrashFile, "the crash file could not be created",
     "Look at the directory's mode and at the disk: plovctl path PA_CRASH_PATH."},

    {Family::xdfc, XDFC_NO_ENTRY, "XDFC_NO_ENTRY", kFiles, "no entry of the path table matches, or there is no such file", kTable},
    {Family::xdfc, XDFC_NO_MEMORY, "XDFC_NO_MEMORY", kFiles, "no memory for the copy buffer", kMemory},
    {Family::xdfc, XDFC_EXISTS, "XDFC_EXISTS", kFiles, "the file exists and no flag allows for it",
     "Open with XDFC_E_OPEN or XDFC_E_REPLACE."},
    {Family::xdfc, XDFC_TABLE_TOO_LARGE, "XDFC_TABLE_TOO_LARGE", kFiles, "an entry of the path table passes the table's area",
     kTable},
    {Family::xdfc, XDFC_BAD_ARGUMENT_1, "XDFC_BAD_ARGUMENT_1", kFiles, "the first pointer argument is not usable memory", kCaller},
    {Family::xdfc, XDFC_BAD_ARGUMENT_2, "XDFC_BAD_ARGUMENT_2", kFiles, "the second pointer argument is not usable memory",
     kCaller},
    {Family::xdfc, XDFC_BAD_LENGTH, "XDFC_BAD_LENGTH", kFiles, "a name is empty or too long",
     "A name has 1 to 255 characters, 512 for a copy; so has a listing's pattern, and at most 255 its whole directory."},
    {Family::xdfc, XDFC_BAD_ARGUMENT_3, "XDFC_BAD_ARGUMENT_3", kFiles, "the third pointer argument is not usable memory", kCaller},
    {Family::xdfc, XDFC_BAD_ARGUMENT_4, "XDFC_BAD_ARGUMENT_4", kFiles, "the fourth pointer argument is not usable memory",
     kCaller},
    {Family::xdfc, XDFC_BUFFER_TOO_SMALL, "XDFC_BUFFER_TOO_SMALL", "xdfc_list_file_mem", "a name does not fit into the buffer",
     "Give a larger buffer; the names before it are there."},
    {Family::xdfc, XDFC_END_OF_FILE, "XDFC_END_OF_FILE", kFiles, "reading met the end of the file", "Nothing."},
    {Family::xdfc, XDFC_DISK_FULL, "XDFC_DISK_FULL", kFiles, "the disk is full", "Free some space, then repeat."},

    {Family::listing, XDFC_LIST_NO_WORKING_DIRECTORY, "XDFC_LIST_NO_WORKING_DIRECTORY", kListing,
     "there is no working directory to count a relative pattern from", kDirectory},
    {Family::listing, XDFC_LIST_OPEN_FAILED, "XDFC_LIST_OPEN_FAILED", kCount, "the directory cannot be opened", kDirectory},
    {Family::listing, XDFC_LIST_READ_FAILED, "XDFC_LIST_READ_FAILED", kCount, "the directory cannot be read", kDirectory},
    {Family::listing, XDFC_LIST_STAT_FAILED, "XDFC_LIST_STAT_FAILED", kListing,
     "an entry cannot be looked at: a link to nowhere, or it has vanished", "Repeat; remove a link that leads nowhere."},
    {Family::listing, XDFC_LIST_GROW_FAILED, "XDFC_LIST_GROW_FAILED", kReplies, "no memory to enlarge the reply", kMemory},
    {Family::listing, XDFC_LIST_NO_MEMORY, "XDFC_LIST_NO_MEMORY", kReplies, "no memory for the reply", kMemory},
    {Family::listing, XDFC_LIST_NOTHING, "XDFC_LIST_NOTHING", "xdfc_emul_ftp_nlst", "no regular file matches",
     "Nothing, or correct the pattern."},
    {Family::listing, XDFC_LIST_EMPTY, "XDFC_LIST_EMPTY", kReplies, "the directory has not one entry", kDirectory},
    {Family::listing, XDFC_LIST_NO_DIRECTORY, "XDFC_LIST_NO_DIRECTORY", kReplies, "the directory asked for cannot be read",
     kDirectory},
    {Family::listing, XDFC_LIST_NO_PATH, "XDFC_LIST_NO_PATH", kReplies, "the directory of the files asked for cannot be read",
     kDirectory},

    {Family::xpce, XPCE_PROBE_STRING_FAULT, "XPCE_PROBE_STRING_FAULT", kProbe, "a byte of the string cannot be read", kCaller},
    {Family::xpce, XPCE_PROBE_FAULT, "XPCE_PROBE_FAULT", kProbe, "a byte of the range cannot be used", kCaller},
    {Family::xpce, XPCE_PROBE_WRAP, "XPCE_PROBE_WRAP", kProbe, "address and size pass the end of the address space", kCaller},
    {Family::xpce, XPCE_SHORT_SEND, "XPCE_SHORT_SEND", "messages to the process-control daemon", "a message was sent short", "See that plovpced runs."},
    {Family::xpce, XPCE_SHORT_TOTAL, "XPCE_SHORT_TOTAL", "messages to the process-control daemon", "a whole message was sent short",
     "See that plovpced runs."},
    {Family::xpce, 0x702, "", "xpce_setup", "the process type is not one of those known", "Correct the calling program."},
    {Family::xpce, XPCE_NO_KEY, "XPCE_NO_KEY", "xpce_setup", "no thread key for the alternate stacks", kMemory},
    {Family::xpce, 0x711, "", "xpce_setup", "the alternate stack's thread value could not be set", kMemory},
    {Family::xpce, XPCE_RECORD_NOT_STORED, "XPCE_RECORD_NOT_STORED", "xpce_setup", "the thread's data value could not be set", kMemory},
    {Family::xpce, XPCE_NOT_REGISTERED, "XPCE_NOT_REGISTERED", "xpce_setup", "the registration could not be sent to the daemon", "See that plovpced runs."},
    {Family::xpce, XPCE_NOT_DEREGISTERED, "XPCE_NOT_DEREGISTERED", "xpce_unset", "the de-registration could not be sent to the daemon", "See that plovpced runs."},
    {Family::xpce, XPCE_UNBALANCED_THREAD, "XPCE_UNBALANCED_THREAD", "the end of a thread", "a thread ended with set-ups not taken back",
     "Correct the calling program."},
    {Family::xpce, XPCE_DEREGISTER_SKIPPED, "XPCE_DEREGISTER_SKIPPED", "xpce_unset", "not de-registered: the process is handling a trap", "Nothing."},
    {Family::xpce, XPCE_NO_LOCK, "XPCE_NO_LOCK", kSetup, "the mutex of process control could not be had",
     "The thread holds it already, or another one has held it for 90 seconds: look at its stack, and the trace."},
    {Family::xpce, XPCE_BAD_PROCESS_TYPE, "XPCE_BAD_PROCESS_TYPE", "xpce_setup",
     "the process type is above 3; the process is set up as a temporary one", "Correct the calling program."},
    {Family::xpce, XPCE_NO_ACTIVE_SETUP, "XPCE_NO_ACTIVE_SETUP", "xpce_unset", "the process has no set-up to take back",
     "Correct the calling program."},
    {Family::xpce, XPCE_NO_THREAD_SETUP, "XPCE_NO_THREAD_SETUP", "xpce_unset", "the thread has no set-up to take back",
     "Correct the calling program."},
    {Family::xpce, XPCE_BAD_TAG, "XPCE_BAD_TAG", "xpce_set_user_tag", "the tag cannot be read", kCaller},
    {Family::xpce, XPCE_BAD_TAG_LENGTH, "XPCE_BAD_TAG_LENGTH", "xpce_set_user_tag",
     "the tag is empty or longer than 82 characters; it is stored, cut to 83", "Correct the calling program."},
    {Family::xpce, XPCE_BAD_NEW_ACTION, "XPCE_BAD_NEW_ACTION", kSetup, "the action record is not usable memory", kCaller},
    {Family::xpce, XPCE_BAD_OLD_ACTION, "XPCE_BAD_OLD_ACTION", "xpce_setup", "the record of the old action is not usable memory",
     kCaller},
    {Family::xpce, XPCE_PROBE_READABLE, "XPCE_PROBE_READABLE", kProbe, "the read test passed, or could not be made", "Nothing."},
    {Family::xpce, XPCE_PROBE_WRITABLE, "XPCE_PROBE_WRITABLE", kProbe, "the write test passed, or could not be made", "Nothing."},

    {Family::xact, XACT_NOT_FOUND, "XACT_NOT_FOUND", "xact_get_func_addr, xact_get_func_addr2",
     "the module or the function was not found", "The loader's reason is in the trace: plovctl trace --tag XDLL."},

    {Family::xmis, XMIS_BAD_PARAMETERS, "XMIS_BAD_PARAMETERS", kSpawn, "the parameter block is not usable memory", kCaller},
    {Family::xmis, XMIS_BAD_FLAGS, "XMIS_BAD_FLAGS", kSpawn, "a flag other than the wait is set", "Correct the calling program."},
    {Family::xmis, XMIS_BAD_PROGRAM, "XMIS_BAD_PROGRAM", kSpawn, "the program's name is unreadable or empty",
     "Correct the calling program."},
    {Family::xmis, XMIS_BAD_ENVIRONMENT, "XMIS_BAD_ENVIRONMENT", kSpawn, "the environment is not usable memory", kCaller},
    {Family::xmis, XMIS_BAD_ARGUMENTS, "XMIS_BAD_ARGUMENTS", kSpawn, "the argument vector is missing or cannot be read", kCaller},
    {Family::xmis, XMIS_SPAWN_FAILED, "XMIS_SPAWN_FAILED", kSpawn, "the program could not be started",
     "The reason is an errno: see that the program is on PATH and may be executed."},
    {Family::xmis, XMIS_WAIT_FAILED, "XMIS_WAIT_FAILED", kSpawn, "waiting for the program's end failed",
     "The reason is an errno; the program may still run."},
    {Family::xmis, XMIS_STILL_RUNNING, "XMIS_STILL_RUNNING", kSpawn, "the time limit is over and the program still runs",
     "Wait longer, or see with ps what the program waits for: it was not ended."},
    {Family::xmis, XMIS_CHILD_VANISHED, "XMIS_CHILD_VANISHED", kSpawn, "the program's end was taken by someone else",
     "The calling process ignores SIGCHLD or waits for any child: its status is lost."},

    {Family::xsim, XSIM_NO_DATA_FILE, "XSIM_NO_DATA_FILE", kSimLoad, "ywkzsim.dat cannot be opened", kMapFiles},
    {Family::xsim, XSIM_NO_SEMAPHORE, "XSIM_NO_SEMAPHORE", kSimField, "the map's semaphore could not be taken",
     "See ipcs -s for the key 0x96728007, and the trace: plovctl trace --tag XSIM."},
    {Family::xsim, XSIM_NOT_LOADED, "XSIM_NOT_LOADED", kSimField, "the field's array is not loaded",
     "Loading failed or still goes on; its code is in the trace of the first process. Remove the segments with the keys "
     "0x96728002 to 0x96728007 (ipcrm -M) while no console process runs; the next one loads anew."},
    {Family::xsim, XSIM_BAD_POINTER, "XSIM_BAD_POINTER", kSimField, "a buffer or a piece list is not usable memory", kCaller},
    {Family::xsim, XSIM_UNKNOWN_FIELD, "XSIM_UNKNOWN_FIELD", kSimField, "there is no field of that number",
     "See the fields with: plovctl sim list. Numbers 1001 to 1999 must stand in ywkzsfm.h."},
    {Family::xsim, XSIM_NOT_INITIALIZED, "XSIM_NOT_INITIALIZED", kSimField,
     "the field has no storage, or a piece leaves the data area", "See the fields with: plovctl sim list."},
    {Family::xsim, XSIM_NO_MEMORY, "XSIM_NO_MEMORY", kSimField, "no memory, or no shared memory while loading",
     "See ipcs -m and ipcs -l, and the trace: plovctl trace --tag XSIM."},
    {Family::xsim, XSIM_CLOSE_FAILED, "XSIM_CLOSE_FAILED", kSimField, "a file of the map could not be closed", kDisk},
    {Family::xsim, XSIM_READ_FAILED, "XSIM_READ_FAILED", kSimField,
     "a file of the map could not be read, or ends inside a record", kMapFiles},
    {Family::xsim, XSIM_SEEK_FAILED, "XSIM_SEEK_FAILED", kSimField, "positioning in the permanent file failed", kDisk},
    {Family::xsim, XSIM_TOO_MANY_FIELDS, "XSIM_TOO_MANY_FIELDS", kSimLoad,
     "the array would be too large, or a field's number lies outside of it", kMapFiles},
    {Family::xsim, XSIM_TOO_MUCH_DATA, "XSIM_TOO_MUCH_DATA", kSimLoad,
     "the values would be too large, or a field's size is impossible", kMapFiles},
    {Family::xsim, XSIM_NO_ARRAY, "XSIM_NO_ARRAY", kSimField, "the shared array cannot be attached", kSharedMemory},
    {Family::xsim, XSIM_NO_DATA_AREA, "XSIM_NO_DATA_AREA", kSimField, "the shared data area cannot be attached",
     kSharedMemory},
    {Family::xsim, XSIM_NO_PERMANENT_FILE, "XSIM_NO_PERMANENT_FILE", kSimField, "the permanent file cannot be opened",
     "Look for it with: plovctl path ywkzspr.dat kvdzspr.dat."},
    {Family::xsim, XSIM_ALREADY_LOCKED, "XSIM_ALREADY_LOCKED", "xsim_lock", "the field is locked already",
     "Whoever locked it has not written yet, or has died; plovctl sim unlock ID ends the lock."},
    {Family::xsim, XSIM_NOT_LOCKED, "XSIM_NOT_LOCKED", "xsim_unlock", "the field is not locked", "Nothing."},
    {Family::xsim, XSIM_FIELD_LOCKED, "XSIM_FIELD_LOCKED", kSimField,
     "the field is locked: it was read all the same, or not written",
     "Write with the override, or end the lock with: plovctl sim unlock ID."},
    {Family::xsim, XSIM_WRITE_FAILED, "XSIM_WRITE_FAILED", kSimField, "writing the permanent file failed", kDisk},
    {Family::xsim, XSIM_NOT_PERMANENT, "XSIM_NOT_PERMANENT", "xsim_file_read, xsim_file_write",
     "the field's value does not stand in the permanent file", "Correct the calling program."},
    {Family::xbt, XBT_BAD_NAME, "XBT_BAD_NAME", kRestart, "the application name is unreadable, empty or longer than 256 bytes",
     "Correct the calling program."},
    {Family::xbt, XBT_BAD_MESSAGE, "XBT_BAD_MESSAGE", kRestart, "the application name became bad during the call", kCaller},
    {Family::xbt, XBT_BAD_TYPE, "XBT_BAD_TYPE", kRestart, "the restart type is not 1 to 4", "Correct the calling program."},
    {Family::xbt, XBT_JAVA_ANSWERED_2, "XBT_JAVA_ANSWERED_2", kRestart, "the Java side answered 2; there is no local shutdown",
     "The console's shutdown manager refuses: look at its own log."},
    {Family::xbt, XBT_JAVA_ANSWERED_1, "XBT_JAVA_ANSWERED_1", kRestart, "the Java side answered 1; there is no local shutdown",
     "The console's shutdown manager refuses: look at its own log."},
    {Family::xbt, 0x3081, "", "an event of xbt_restart", "no memory for a message line", kMemory},
    {Family::xbt, 0x3580, "", "an event of xbt_restart", "a message line was cut to 78 characters", "Nothing."},
    {Family::xbt, XBT_NO_STRING, "XBT_NO_STRING", kRestart,
     "a Java string could not be made, or the process has no Java side", kJava},
    {Family::xbt, XBT_NOT_RELEASED, "XBT_NOT_RELEASED", kRestart, "a Java string could not be released",
     "Nothing: the restart itself was asked for. The trace says more: plovctl trace --tag XBT."},
    {Family::xbt, XBT_CALL_FAILED, "XBT_CALL_FAILED", kRestart, "the Java side could not be called, or it threw", kJava},
    {Family::xbt, XBT_BAD_ANSWER, "XBT_BAD_ANSWER", kRestart, "the Java side answered neither 0, 1 nor 2", kJava},
    {Family::xbt, 0x5084, "", "an event of xbt_restart", "the Java side failed and the local command was tried",
     "The event before it says why."},
    {Family::xbt, XBT_COMMAND_FAILED, "XBT_COMMAND_FAILED", kRestart,
     "neither the Java side nor the local command: the machine runs on",
     "Shut the machine down by hand: reboot, halt or poweroff."},

    {Family::xnb, XNB_NO_VM, "XNB_NO_VM", kBridge, "no Java VM in this process, or the thread could not be attached",
     "See that the process is one of Java's, or that PLOV_JVM names a libjvm.so: plovsp1(7)."},
    {Family::xnb, XNB_NO_CLASS, "XNB_NO_CLASS", kBridge, "no such Java class, or its initialisation failed",
     "See the class path: PLOV_CLASSPATH, or that of the Java process."},
    {Family::xnb, XNB_NO_METHOD, "XNB_NO_METHOD", kBridge, "no such Java method of these argument types and this kind of result",
     "The Java side is of another version: install both of one."},
    {Family::xnb, XNB_EXCEPTION, "XNB_EXCEPTION", kBridge, "Java threw an exception",
     "Of a Java-served field and of a restart its words are in the trace: plovctl trace."},
    {Family::xnb, XNB_NO_MEMORY, "XNB_NO_MEMORY", kBridge, "native memory or Java references are used up", kMemory},
    {Family::xnb, XNB_BAD_ARGUMENT, "XNB_BAD_ARGUMENT", kBridge, "an argument of a bridge call is missing, too long or no signature",
     "Correct the calling program."},
    {Family::xnb, XNB_BAD_REFERENCE, "XNB_BAD_REFERENCE", kBridge, "an object of a bridge call is null, released or of another class",
     "Correct the calling program."},

    {Family::plovpced, 0x400, "", kCrash, "the exception report of a problem-analysis process", kReport},
    {Family::plovpced, 0x40A, "", kCrash, "the exception report of a temporary process", kReport},
    {Family::plovpced, 0x40C, "", kCrash, "the exception report of a permanent process", kReport},
    {Family::plovpced, 0x40E, "", kCrash, "the exception report of a process without asynchronous termination", kReport},
    {Family::plovpced, SMSG_TAKE_LOG_REQ, "SMSG_TAKE_LOG_REQ", kToDaemon, "an exception report is to be recorded", kAsk},
    {Family::plovpced, SMSG_REGISTER_REQ, "SMSG_REGISTER_REQ", kToDaemon, "a process registers", kAsk},
    {Family::plovpced, SMSG_DEREGISTER_REQ, "SMSG_DEREGISTER_REQ", kToDaemon, "a process de-registers", kAsk},
    {Family::plovpced, SMSG_GENERIC_ACK, "SMSG_GENERIC_ACK", kFromDaemon, "a message was understood", kAsk},
    {Family::plovpced, SMSG_TAKE_LOG_ACK, "SMSG_TAKE_LOG_ACK", kFromDaemon, "an exception report is in the log", kAsk},
    {Family::plovpced, SMSG_REGISTER_ACK, "SMSG_REGISTER_ACK", kFromDaemon, "a process is registered", kAsk},
    {Family::plovpced, SMSG_DEREGISTER_ACK, "SMSG_DEREGISTER_ACK", kFromDaemon, "a process is de-registered", kAsk},
};
// clang-format on

constexpr uint32_t kLargestErrno = 133;

}  // namespace

std::span<const Code> all_codes() {
  return kCodes;
}

std::vector<const Code*> find_codes(uint32_t value) {
  std::vector<const Code*> found;
  for (const Code& code : kCodes)
    if (code.family != Family::sysrc && code.value == value) found.push_back(&code);
  return found;
}

std::vector<const Code*> find_codes(Family family, uint32_t value) {
  std::vector<const Code*> found;
  for (const Code& code : kCodes)
    if (code.family == family && code.value == value) found.push_back(&code);
  return found;
}

const Code* find_code_by_name(std::string_view name) {
  for (const Code& code : kCodes)
    if (!name.empty() && name == code.name) return &code;
  return nullptr;
}

const char* family_name(Family family) {
  switch (family) {
    case Family::sysrc:
      return "sysrc";
    case Family::xlog:
      return "xlog";
    case Family::xp11:
      return "xp11";
    case Family::xdfc:
      return "xdfc";
    case Family::listing:
      return "listing";
    case Family::xact:
      return "xact";
    case Family::xmis:
      return "xmis";
    case Family::xsim:
      return "xsim";
    case Family::xbt:
      return "xbt";
    case Family::xnb:
      return "xnb";
    case Family::plovpced:
      return "plovpced";
    default:
      return "xpce";
  }
}

std::string notation(Family family, uint32_t value) {
  switch (family) {
    case Family::xlog:
    case Family::xp11:
    case Family::xpce:
    case Family::xmis:
    case Family::xbt:
    case Family::xnb:
    case Family::plovpced:
      return hex(value, 4);
    default:
      return std::to_string(value);
  }
}

std::string explain_result(Family family, int32_t sysrc, uint32_t comprc) {
  std::string text = "sysrc " + std::to_string(sysrc);
  if (const auto codes = find_codes(Family::sysrc, static_cast<uint32_t>(sysrc)); !codes.empty())
    text += std::string(" (") + codes[0]->meaning + ")";
  text += ", comprc " + notation(family, comprc);
  auto codes = find_codes(family, comprc);
  // The listings' own codes stand beside those of all file services.
  if (codes.empty() && family == Family::listing) codes = find_codes(Family::xdfc, comprc);
  if (!codes.empty())
    text += std::string(" (") + codes[0]->meaning + ")";
  else if (comprc > 0 && comprc <= kLargestErrno)
    text += std::string(" (") + strerror(static_cast<int>(comprc)) + ")";
  return text;
}

}  // namespace plov::ctl
