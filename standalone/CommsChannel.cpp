#include "framework/CommsChannelIfc.h"
#include "standalone/AnswerSink.h"

std::shared_ptr<mirel::AnswerSink> CommsChannelIfc::answerSink() { return nullptr; }
