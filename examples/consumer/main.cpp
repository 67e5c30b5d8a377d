// Loads a data set (STEM.names and STEM.data), grows and prunes a tree on
// it and prints the tree: consumer examples/golf
#include <iostream>

#include "sylva/sylva.h"

int main(int argc, char* argv[]) {
  if (argc != 2) return std::cerr << "usage: consumer STEM\n", 2;
  try {
    sylva::table table("training_set");
    table.load_meta_data(sylva::datasource(std::string("FILE#") + argv[1] + ".names#,"));
    table.load_data(sylva::datasource(std::string("FILE#") + argv[1] + ".data#,"), "?");
    sylva::dtree tree(table.get_name());
    tree.build(&table, nullptr, true, 0);  // whole table, keep the training matrix, one core
    tree.toTEXT(std::cout);
  } catch (const std::exception& e) {
    std::cerr << e.what() << "\n";
    return 1;
  }
}
