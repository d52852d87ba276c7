// The lines typed so far, kept between sessions: one line each in $XDG_STATE_HOME/mix/history (or
// ~/.local/state/mix/history), which only its owner can read. Sessions append, so that several at once lose
// nothing; a file grown long is cut to its newest lines when a session starts.
#ifndef MIXSH_HISTORY_H
#define MIXSH_HISTORY_H

#include <string>
#include <string_view>
#include <vector>

namespace mixsh
{

class history_file
{
  public:
    // Empty path: nothing is kept.
    explicit history_file(std::string path, std::size_t most = 1000);

    // Where it is by the environment; empty if there is no home.
    static std::string usual_path();

    // The newest lines, oldest first. A file that can't be read has none.
    std::vector<std::string> load();
    // Lines that can't be written are lost silently: history is a comfort.
    void add(std::string_view line);

  private:
    void shorten(const std::vector<std::string> &lines);

    std::string path_;
    std::size_t most_;
};

} // namespace mixsh

#endif
