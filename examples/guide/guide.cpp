// The pages and the listeners of the guide's chapters.
#include "door_listener.h"
#include "files_page.h"
#include "local_network.h"
#include "welcome_page.h"

KIT_LISTENER(createLocalNetworkListener, LocalNetworkListener)
KIT_LISTENER(createDoorListener, DoorListener("192.168.1.7"))
KIT_SERVLET(createFilesPage, FilesPage("/phone/data/recordings"))
KIT_SERVLET(createWelcomePage, WelcomePage)
