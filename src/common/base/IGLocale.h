// The locale of a process.
#ifndef QUENDIL_COMMON_BASE_IGLOCALE_H
#define QUENDIL_COMMON_BASE_IGLOCALE_H

/// Sets the locale of the environment. Call it before anything reads or shows a text.
void chooseLocale();

#endif
