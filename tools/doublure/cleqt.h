#ifndef CLEQT_H
#define CLEQT_H

#include <QString>

#include <sys/types.h>

// How a Qt 5 program on Unix names a shared segment in System V terms, written
// out here on its own so that a program without QSharedMemory can meet Qt
// programs on the same segments: the key file
// <tmp>/qipc_sharedmemory_<the key's ASCII letters><SHA-1 of the key in hex>,
// and the System V key ftok(file, 'Q').
namespace CleQt {

QString fichier(const QString &cle);
// -1 when the key file is missing.
key_t cleSystemeV(const QString &cle);

} // namespace CleQt

#endif // CLEQT_H
