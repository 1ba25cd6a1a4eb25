"""run_conanfile.py CONANFILE FOLDER: copies there what the recipe exports, and prints its version and CMake options.

Conan is not in Debian: what of it the recipe uses stands here as it is documented.
"""
import importlib.util
import pathlib
import shutil
import sys
import types


def module(name, **members):
    sys.modules[name] = types.ModuleType(name)
    vars(sys.modules[name]).update(members)


def copy(recipe, pattern, src, dst):
    found = [path for path in pathlib.Path(src).glob(pattern.replace("*", "**/*")) if path.is_file()]
    assert found, f"{pattern}: nothing there"
    for path in found:
        to = pathlib.Path(dst) / path.relative_to(src)
        to.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(path, to)


class Toolchain:
    def __init__(self, recipe):
        self.cache_variables = {}

    def generate(self):
        print(" ".join(f"-D{name}={'ON' if value is True else value}" for name, value in self.cache_variables.items()))


conanfile, folder = map(pathlib.Path, sys.argv[1:])
module("conan", ConanFile=type("ConanFile", (), {}))
module("conan.errors", ConanInvalidConfiguration=RuntimeError)
module("conan.tools")
module("conan.tools.build", check_min_cppstd=None)
module("conan.tools.cmake", CMake=None, CMakeToolchain=Toolchain, cmake_layout=None)
module("conan.tools.files", copy=copy, load=lambda recipe, path: pathlib.Path(path).read_text())
loader = importlib.util.spec_from_file_location("recipe", conanfile)
recipe_module = importlib.util.module_from_spec(loader)
loader.loader.exec_module(recipe_module)

recipe = recipe_module.CorvaneCommon()
recipe.recipe_folder, recipe.export_sources_folder = str(conanfile.parent), str(folder)
recipe.options = types.SimpleNamespace(**recipe.default_options)
recipe.set_version()
recipe.export_sources()
print(recipe.version)
recipe.generate()
