// The interactive main menu (no action word given) and its advanced-options submenu. Entries 0-6
// start a job in its interactive form and then leave the menu; 7 (advanced options), 8 (about)
// and 9 (tuning profile) come back to the main menu. A choice is an integer read by
// prompt_integer(), so bad entries are asked again and the end of input ends the program.
#pragma once

#include <string>
#include <vector>

namespace qv {

// The entry lines in menu order; the last one ends with the active tuning profile's name.
std::vector<std::string> main_menu_lines();
void run_main_menu();
// Returns true when a job ran (the program then leaves the menus), false for "back".
bool run_advanced_options();

}  // namespace qv
