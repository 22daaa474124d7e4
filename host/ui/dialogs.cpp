#include "host/ui/dialogs.h"

#include <mutex>

namespace zta {

namespace {
std::mutex g_mutex;
DIALOGPOLICY g_policy = DIALOGPOLICY::ALWAYS_NO;
std::function<bool(const String&)> g_callback;
String g_lastQuestion;
Int64 g_questions = 0;
String g_saveAnswer;
std::function<String(const String&, const String&)> g_fileCallback;
}  // namespace

void SetDialogPolicy(DIALOGPOLICY policy) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_policy = policy;
}

void SetDialogCallback(std::function<bool(const String&)> answer) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_callback = std::move(answer);
}

DIALOGPOLICY GetDialogPolicy() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_policy;
}

Int32 QuestionDialog(const String& text) {
  std::function<bool(const String&)> callback;
  DIALOGPOLICY policy;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_lastQuestion = text;
    ++g_questions;
    policy = g_policy;
    callback = g_callback;
  }
  bool yes = policy == DIALOGPOLICY::ALWAYS_YES;
  // The callback runs outside the lock so that it may ask questions itself.
  if (policy == DIALOGPOLICY::CALLBACK) yes = callback ? callback(text) : false;
  return yes ? DIALOG_ANSWER_YES : DIALOG_ANSWER_NO;
}

String GetLastQuestion() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_lastQuestion;
}

Int64 GetQuestionCount() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_questions;
}

void SetSaveFileAnswer(const String& path) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_saveAnswer = path;
}

void SetFileDialogCallback(std::function<String(const String&, const String&)> answer) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_fileCallback = std::move(answer);
}

bool SaveFileDialog(String& path, const String& title, const String& extension) {
  DIALOGPOLICY policy;
  String answer;
  std::function<String(const String&, const String&)> callback;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    policy = g_policy;
    answer = g_saveAnswer;
    callback = g_fileCallback;
  }
  if (policy == DIALOGPOLICY::ALWAYS_NO) return false;
  if (policy == DIALOGPOLICY::CALLBACK) answer = callback ? callback(title, extension) : String();
  if (answer.empty()) return false;
  const String suffix = "." + extension;
  if (!extension.empty() && (answer.size() < suffix.size() || answer.compare(answer.size() - suffix.size(), suffix.size(), suffix) != 0))
    answer += suffix;
  path = answer;
  return true;
}

}  // namespace zta
