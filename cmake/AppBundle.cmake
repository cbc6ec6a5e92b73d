# The build tree and the installed tree have one shape:
#   Corvane.app/Contents/CorvaneSyncClient.app/Contents/Linux/corvanetool
#   Corvane.app/Contents/CorvaneSyncClient.app/Contents/Resources/...
#   bin/corvanetool -> ../Corvane.app/... (a relative link)

set(CORVANE_CLIENT_CONTENTS "Corvane.app/Contents/CorvaneSyncClient.app/Contents")
