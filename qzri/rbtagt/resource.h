// Resource ids of the reboot agent's dialogues (shared by rbtagt.rc and rbtagt_win.cpp).
#pragma once

#define IDD_CONSENT 101
#define IDD_REBOOT 102
#define IDC_MESSAGE 1001
#define IDC_COUNTDOWN 1002
