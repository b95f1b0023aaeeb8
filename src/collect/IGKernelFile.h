// Files of the kernel's own file systems: their size says nothing about their content, and tar
// would store them empty or padded with zeros. They are read and stored as real files.
#ifndef QUENDIL_COLLECT_IGKERNELFILE_H
#define QUENDIL_COLLECT_IGKERNELFILE_H

/// Copies the file's content, without waiting for more than is there and up to 16 MiB, with its
/// mode, owner and times. The destination must not exist. False when it cannot be read or written,
/// of which nothing is reported. No partial copy stays, or else "unlink" is reported. Ends early,
/// as a failure, when the run is interrupted.
bool kernelFileCopy(const char* source, const char* destination);

#endif
