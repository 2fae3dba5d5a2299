#include "framework/CommsChannelIfc.h"
#include "runtime/values/AnswerSink.h"

std::shared_ptr<mirel::AnswerSink> CommsChannelIfc::answerSink() { return nullptr; }
