// The one-line progress display on the standard output, redrawn in place: a label, a bar of 68
// columns, a carriage return. Phases share the bar: 4 columns for initializing, 52 for collecting,
// 10 for the archive, 2 for the cleanup.
#ifndef QUENDIL_COMMON_REPORT_IGCMNPROGRESS_H
#define QUENDIL_COMMON_REPORT_IGCMNPROGRESS_H

#include <cstdint>

/// Allows the display: until then nothing is drawn.
void IgCmnProgressEnable();
/// Starts the display with the phase "initialize:".
void IgCmnProgressInit();
/// Goes to the phase "collect   :" of `items` steps.
void IgCmnProgressCollect(std::int32_t items);
/// Goes to the phase "archive   :" of four steps.
void IgCmnProgressArchive();
/// Goes to the phase "cleanup   :" of one step.
void IgCmnProgressCleanup();
/// Takes one step of the current phase. Does nothing once the run has been interrupted.
void IgCmnProgressStep();
/// Draws the full bar and ends the line.
void IgCmnProgressEnd();
/// Ends the line when the bar is on the screen, so that other text starts on a line of its own.
void IgCmnProgressNewline();

#endif
