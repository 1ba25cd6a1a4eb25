// Which pictures a command line names, and what their results are called.
#ifndef CORVANE_TOOLS_PICTURES_PICTURE_LIST_H_
#define CORVANE_TOOLS_PICTURES_PICTURE_LIST_H_

#include <string>
#include <vector>

namespace corvane_tool {

// Each argument is a picture; or a folder, which stands for the .png, .jpg and .jpeg files in it
// and below it, in the order of their names; or a text file, named @FILE or FILE.txt, of one
// picture or folder a line, relative to the text file's folder; or "-", the same from standard
// input, relative to the working folder. Empty lines count for nothing. Throws Failure for a folder
// without pictures, a list that cannot be read, and where no picture is named at all.
std::vector<std::string> ExpandPictures(const std::vector<std::string>& arguments);

// One name for each picture, to which results append their endings: the file name without its
// ending. Where two of those are equal, all names are the paths below the folder that the pictures
// share; where these still are, the file's ending stays. Throws Failure where a picture is given
// twice.
std::vector<std::string> ResultNames(const std::vector<std::string>& pictures);

}  // namespace corvane_tool

#endif  // CORVANE_TOOLS_PICTURES_PICTURE_LIST_H_
