#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONEncoder.hpp>

#include <Examples/CRUD/NoteService.hpp>
#include <charconv>
#include <string_view>
#include <vector>

namespace examples {
namespace {

using Answer = LoopbackService::Answer;

template <class T>
Answer json(const T& value, int status = 200) {
  return {.status = status,
          .contentType = "application/json",
          .body = std::string(tarn::JSONEncoder().encode(value).view())};
}

}  // namespace

NoteService::NoteService()
    : service_([this](const LoopbackService::Request& request) { return answer(request); }) {}

Answer NoteService::answer(const LoopbackService::Request& request) try {
  const std::lock_guard lock(mutex_);
  constexpr std::string_view all = "/notes";
  if (request.path == all && request.method == "GET") {
    std::vector<Note> notes;
    for (const auto& entry : notes_) notes.push_back(entry.second);
    return json(notes);
  }
  if (request.path == all && request.method == "POST") {
    auto note = tarn::JSONDecoder().decode<Note>(request.body);
    const int id = notes_.empty() ? 1 : notes_.rbegin()->first + 1;
    note.id = id;
    return json(notes_[id] = note, 201);
  }
  int id = 0;
  const auto text =
      std::string_view(request.path).substr(std::min(request.path.size(), all.size() + 1));
  std::from_chars(text.data(), text.data() + text.size(), id);
  if (!notes_.contains(id)) return {.status = 404, .body = "no such note"};
  return answerOne(request, id);
} catch (const tarn::DecodingError& error) {
  return {.status = 400, .body = error.message()};
}

Answer NoteService::answerOne(const LoopbackService::Request& request, int id) {
  if (request.method == "DELETE") {
    notes_.erase(id);
    return {.status = 204, .body = ""};
  }
  if (request.method == "PUT") {
    notes_[id] = tarn::JSONDecoder().decode<Note>(request.body);
    notes_[id].id = id;
  }
  return json(notes_[id]);
}

}  // namespace examples
