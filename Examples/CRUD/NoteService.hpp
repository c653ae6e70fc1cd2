#pragma once

#include <Examples/Support/LoopbackService.hpp>
#include <map>
#include <mutex>
#include <string>

namespace examples {

/// What the client and the service exchange.
struct Note {
  int id = 0;  // the service's to choose
  std::string text;
  bool done = false;
};

/// Keeps notes in memory: POST and GET of /notes, GET, PUT and DELETE of /notes/ID.
class NoteService {
 public:
  NoteService();

  std::string url() const { return service_.url(); }

 private:
  LoopbackService::Answer answer(const LoopbackService::Request& request);
  LoopbackService::Answer answerOne(const LoopbackService::Request& request, int id);

  std::mutex mutex_;
  std::map<int, Note> notes_;
  LoopbackService service_;  // the last: it answers as soon as it is there
};

}  // namespace examples
