#pragma once
// Dialogs that ask the user. Nothing here waits for a person: the answer
// comes from a policy that zvol sets from its options and tests set directly.
#include <functional>

#include "host/core/types.h"

namespace zta {

enum : Int32 { DIALOG_ANSWER_YES = 6, DIALOG_ANSWER_NO = 7 };

enum class DIALOGPOLICY : Int32 { ALWAYS_NO = 0, ALWAYS_YES = 1, CALLBACK = 2 };

// What QuestionDialog answers. The default is ALWAYS_NO, the safe answer.
void SetDialogPolicy(DIALOGPOLICY policy);
// With CALLBACK the function is asked the question text; it must not block.
void SetDialogCallback(std::function<bool(const String& question)> answer);
DIALOGPOLICY GetDialogPolicy();

// Asks a yes/no question; 6 is yes, 7 is no. Each question is counted and
// remembered, so that a run can report what it was asked.
Int32 QuestionDialog(const String& text);
String GetLastQuestion();
Int64 GetQuestionCount();

// Asks for a file to save to; true with `path` set when answered. By the
// policy: ALWAYS_NO cancels; ALWAYS_YES answers the path set with
// SetSaveFileAnswer (and cancels without one); CALLBACK asks the file
// callback, whose empty answer cancels. An answer without the extension gets it.
bool SaveFileDialog(String& path, const String& title, const String& extension);
void SetSaveFileAnswer(const String& path);
void SetFileDialogCallback(std::function<String(const String& title, const String& extension)> answer);

}  // namespace zta
