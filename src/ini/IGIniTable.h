// The tables of one run: the root table with its whole configuration and state, and the pattern
// tables with their blocks and items. The run's main pool owns everything in them.
#ifndef QUENDIL_INI_IGINITABLE_H
#define QUENDIL_INI_IGINITABLE_H

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "common/base/IGCmnList.h"
#include "common/base/IGCmnMemory.h"

class IniObserver;
struct OutputNames;

/// Flags of a pattern table: the keywords that its file has given.
enum PtnFlag : std::uint32_t {
    PTN_VRS = 1U << 0,
    PTN_KATAMEI = 1U << 1,
    PTN_NAME = 1U << 2,
    PTN_GROUP = 1U << 3,
    PTN_FORMAT_VERSION = 1U << 4,
    PTN_BLOCK = 1U << 15,  // at least one BLOCK was opened
};

/// Flags of a block.
enum BlockFlag : std::uint32_t {
    BLOCK_TARGET = 1U << 0,
};

/// Flags of a tool item.
enum ToolFlag : std::uint32_t {
    TOOL_TIMEOUT = 1U << 0,
    TOOL_TIMEOUT_SIGNAL = 1U << 1,
    TOOL_WAIT_TERMINATION = 1U << 2,
    TOOL_COMMAND_LINE = 1U << 3,
    TOOL_REDIRECT_PATH = 1U << 4,
};

/// Flags of a data item.
enum DataFlag : std::uint32_t {
    DATA_DESCRIPTION = 1U << 0,
    DATA_FILE_TYPE = 1U << 1,
    DATA_PATH_NAME = 1U << 2,
};

enum ItemKind : std::int32_t {
    ITEM_TOOL = 0,
    ITEM_DATA = 1,
};

/// Codes of FILE_TYPE.
enum FileType : std::int32_t {
    FILE_TEXT = 0,
    FILE_BINARY = 1,
    FILE_ARCHIVE = 2,
    FILE_DIRECTORY = 3,
    FILE_OTHER = 4,  // any other word; kept as text
};

/// Values of a TOOL_BLOCK.
struct tool_block {
    std::int32_t timeout;           // seconds; below 1 none
    std::int32_t timeout_signal;    // number of the signal that is sent when the time is over
    std::int32_t wait_termination;  // seconds from that signal to SIGKILL
    char* command_line;             // as written
    char* command_line_copy;        // as written, a second time
    char* redirect_path;            // without enclosing double quotes; null when not given
    char* redirect_path_written;
    std::array<char, 13> start_stamp;  // YYMMDDhhmmss, set just before the tool starts
};

/// Values of a DATA_BLOCK.
struct data_block {
    IgCmnListHeader* description;  // strings; null when none
    char* file_type_word;          // as written; null when not given
    std::int32_t file_type;        // FileType
    char* path_name_written;
    char* path_name;  // without enclosing double quotes
};

/// One item of a block, in file order.
struct collect_item {
    std::int32_t kind;    // ItemKind
    std::uint32_t flags;  // ToolFlag or DataFlag
    union {
        tool_block tool;
        data_block data;
    };
};

struct ptn_block {
    std::int32_t skip;        // 1 until the block is selected
    std::uint32_t flags;      // BlockFlag
    IgCmnListHeader* target;  // strings, one per TARGET
    IgCmnListHeader* items;   // collect_item, in file order
    collect_item* current;    // the item being read
};

struct pickptn_tbl {
    std::uint32_t flags;       // PtnFlag
    IgCmnListHeader* katamei;  // one string
    char* vrs;
    IgCmnListHeader* name;    // one string
    IgCmnListHeader* group;   // strings, one per PP_GROUP
    IgCmnListHeader* blocks;  // ptn_block, in file order
    ptn_block* current;       // the block being read
    // set when collecting
    IgCmnListHeader* targets;    // distinct targets of the selected blocks
    std::uint32_t targets_hash;  // of all of them in their order
    char* output_name;           // name of its directory before it is made unique
    char* output_dir;            // where the pattern's data goes
};

/// Number of the special strings %reg0% to %reg9%, which are reserved and never have a value.
inline constexpr std::size_t REG_COUNT = 10;

/// Whether a run that fails or is interrupted while it collects deletes its output directory. OFF,
/// unless the configuration file sets it ON.
inline constexpr std::int32_t CLEANUP_OFF = 1;
inline constexpr std::int32_t CLEANUP_ON = 0;

struct root_tbl {
    // values of the special strings
    char* YY;
    char* MM;
    char* DD;
    char* hh;
    char* mm;
    char* ss;
    char* d;  // the current pattern's output directory; null outside its collection
    std::array<char*, REG_COUNT> reg;  // reserved, never set
    char* HOST;
    // values of the command line
    IgCmnListHeader* opt_target;
    IgCmnListHeader* opt_group;
    char* opt_directory;
    char* opt_output_file;
    char* opt_config;
    std::int32_t opt_mark;  // -2: reserved
    // selection of the patterns; null selects all
    IgCmnListHeader* target;
    IgCmnListHeader* pp_group;
    IgCmnListHeader* pp_name;
    // where the output goes
    char* output_dir;           // base directory
    char* output_name;          // name of the directory in it, and of the archive by default
    char* output_file;          // the archive's name without ".tar", absolute with -o; after the
                                // compression the whole path of the ".tar.gz"
    std::int32_t output_mark;   // -1: reserved
    bool output_made;           // this run has made its output directory
    const char* output_path;    // its path; null before
    const char* output_normal;  // the same, normalised
    dev_t output_device;        // identity of that directory
    ino_t output_inode;
    bool output_held;              // users other than root can replace its path
    int output_fd;                 // then: its O_PATH descriptor, until the process ends
    bool output_kept;              // the archive may be incomplete: the directory is kept
    bool tools_ran;                // a tool may have written into the output
    OutputNames* output_names;     // how many entries of the output begin with a name; or null
    std::int32_t cleanup;          // CLEANUP_ON, or anything else for OFF
    std::int64_t max_output_size;  // in units of 512 bytes; 0 or less is no limit
    IgCmnListHeader selected;      // pickptn_tbl, in the order their files were read
    pickptn_tbl* crnt_ptn_def;     // the pattern being read
    IniObserver* observer;         // of the readers, for a check of the files; null in a run
};

/// New records of the pool, zero except for their defaults; null when memory runs out.
pickptn_tbl* IgIniGetPickPtn(memory_pool* memoryp);
ptn_block* IgIniGetPickPtnBlock(memory_pool* memoryp);
collect_item* IgIniGetPickPtnCmdData(memory_pool* memoryp, ItemKind kind);

/// Appends a copy of the string to the list, making the list on first use. Returns 0, or -1 when
/// memory runs out.
int IgIniCollectList(const char* value, IgCmnListHeader** list, memory_pool* memoryp);

#endif
