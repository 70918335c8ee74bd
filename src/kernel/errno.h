// Linux error numbers, as macros of the same tokens as the C library's, so that a user-level file
// may include both.
#pragma once

#define EPERM 1
#define ENOENT 2
#define ESRCH 3
#define ENOMEM 12
#define EFAULT 14
#define EBUSY 16
#define EEXIST 17
#define ENODEV 19
#define EINVAL 22
#define ERANGE 34
#define EMSGSIZE 90
#define ESOCKTNOSUPPORT 94
#define EOPNOTSUPP 95
#define EAFNOSUPPORT 97
#define EADDRNOTAVAIL 99
#define ENETDOWN 100
#define ENOBUFS 105
