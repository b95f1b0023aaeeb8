// The one-line progress display on the standard output, redrawn in place: a label, a bar whose
// columns the phases share, a carriage return.
#ifndef QUENDIL_COMMON_REPORT_IGCMNPROGRESS_H
#define QUENDIL_COMMON_REPORT_IGCMNPROGRESS_H

#include <cstdint>

/// Enables the display: nothing is drawn before.
void IgCmnProgressEnable();
/// Starts the display with the phase "initialize:".
void IgCmnProgressInit();
/// Starts the phase "collect   :" of `items` steps.
void IgCmnProgressCollect(std::int32_t items);
/// Starts the phase "archive   :" of four steps.
void IgCmnProgressArchive();
/// Starts the phase "cleanup   :" of one step.
void IgCmnProgressCleanup();
/// Takes one step of the current phase. Does nothing once the run is interrupted.
void IgCmnProgressStep();
/// Draws the full bar and ends the line.
void IgCmnProgressEnd();
/// Ends the line when it shows the bar, so that other text starts on its own line.
void IgCmnProgressNewline();

#endif
