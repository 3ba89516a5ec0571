/* host/complain.h - problems for the web server's error log. */
#ifndef HOST_COMPLAIN_H
#define HOST_COMPLAIN_H

/* Prints a line on standard error, behind the program's name. */
__attribute__((format(printf, 1, 2))) void complain(const char *format, ...);

#endif
