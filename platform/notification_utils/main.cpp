#include "platform/notification_utils/Tool.h"

int main(int argumentCount, char** arguments) { return RunTool(argumentCount, arguments); }
