// Creates, changes, lists and deletes a note: a typed client of a small service.
#include <TarnService/TarnService.hpp>

#include <Examples/CRUD/NoteService.hpp>
#include <cstdio>
#include <future>

using namespace tarn;
using examples::Note;
struct CreateNote : JSONPostRequestable<CreateNote, Note> {
  URL url;
  Note body;
};
struct UpdateNote : JSONPutRequestable<UpdateNote, Note> {
  URL url;
  Note body;
};

// Sends and waits; what is no success throws.
template <class Request>
auto send(const Request& request) {
  std::promise<typename Request::Response> answer;
  request.send(std::nullopt, [&](typename Request::Response r) { answer.set_value(r); });
  const auto result = answer.get_future().get().result;
  if (const auto error = result.error()) error->raise();
  return result.body();
}

int main() {
  const examples::NoteService service;
  const URL notes(service.url() + "/notes");
  const Note note = send(CreateNote{{}, notes, {.text = "buy milk"}}).value();
  const URL one(service.url() + "/notes/" + std::to_string(note.id));
  send(UpdateNote{{}, one, {note.id, note.text, true}});
  const auto all = send(JSONGetRequest<std::vector<Note>>(notes));
  for (const Note& each : all.value())
    std::printf("%d: %s (%s)\n", each.id, each.text.c_str(), each.done ? "done" : "open");
  send(JSONDeleteRequest<EmptyJSON>(one));
}
