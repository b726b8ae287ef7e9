// The pages and the listener of the guide's chapters.
#include "local_network.h"
#include "task_list.h"
#include "upload_page.h"
#include "welcome_page.h"

KIT_LISTENER(createLocalNetworkListener, LocalNetworkListener)
KIT_SERVLET(createTaskListPage, TaskListPage)
KIT_SERVLET(createUploadPage, UploadPage("/phone/data/picture.png"))
KIT_SERVLET(createWelcomePage, WelcomePage)
