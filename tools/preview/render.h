/* tools/preview/render.h - pages that are made of templates. */
#ifndef PREVIEW_RENDER_H
#define PREVIEW_RENDER_H

#include "job.h"

/* Runs a template and answers with what it makes, or with why that is no whole page. page: its
 * path; it can be opened. Returns the exit status. */
int answerTemplate(Job &job, const std::string &page);

#endif
