#include "downloads.h"

#include <kit/not_found.h>

KIT_SERVLET(createRecordingsPage, RecordingsPage("/phone/data/recordings"))
KIT_SERVLET(createManualPage, ManualPage("/phone/data/manual.pdf"))
KIT_SERVLET(createMeasurementsPage, MeasurementsPage)
KIT_SERVLET(createNewsPage, NewsPage)
KIT_SERVLET(createThemePage, ThemePage)

KIT_LISTENER(createNotFound, kit::NotFound("not-found.html"))
