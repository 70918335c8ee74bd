// The kernel log, by level.
//
// A line ends in "\n". The level travels as a two-character prefix of the format, as in the kernel.
#pragma once

extern "C" int _printk(const char *format, ...) __attribute__((format(printf, 1, 2)));

#define KERN_CRIT                                                                                  \
    "\001"                                                                                         \
    "2"
#define KERN_ERR                                                                                   \
    "\001"                                                                                         \
    "3"
#define KERN_WARNING                                                                               \
    "\001"                                                                                         \
    "4"
#define KERN_NOTICE                                                                                \
    "\001"                                                                                         \
    "5"
#define KERN_INFO                                                                                  \
    "\001"                                                                                         \
    "6"
#define KERN_DEBUG                                                                                 \
    "\001"                                                                                         \
    "7"
#define KERN_CONT                                                                                  \
    "\001"                                                                                         \
    "c"

#define pr_crit(format, ...) _printk(KERN_CRIT format __VA_OPT__(, ) __VA_ARGS__)
#define pr_err(format, ...) _printk(KERN_ERR format __VA_OPT__(, ) __VA_ARGS__)
#define pr_warn(format, ...) _printk(KERN_WARNING format __VA_OPT__(, ) __VA_ARGS__)
#define pr_notice(format, ...) _printk(KERN_NOTICE format __VA_OPT__(, ) __VA_ARGS__)
#define pr_info(format, ...) _printk(KERN_INFO format __VA_OPT__(, ) __VA_ARGS__)
#define pr_debug(format, ...) _printk(KERN_DEBUG format __VA_OPT__(, ) __VA_ARGS__)
#define pr_cont(format, ...) _printk(KERN_CONT format __VA_OPT__(, ) __VA_ARGS__)
