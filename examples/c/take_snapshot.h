/* A host agent's request in C: a snapshot set of the SQL Server databases on some disks of the array. */
#ifndef TAKE_SNAPSHOT_H
#define TAKE_SNAPSHOT_H

#include <stddef.h>
#include <stdio.h>

/* Tells what it does, and failures with what the array wants of them. Returns the code of the request. */
int take_snapshot(const char* const* serial_numbers, size_t count, FILE* out);

#endif
