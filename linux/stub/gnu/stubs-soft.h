/* The C library's headers look for this file when -msoft-float is given; the kernel needs nothing
 * from it. */
