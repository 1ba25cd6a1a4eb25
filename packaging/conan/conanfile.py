"""conan create packaging/conan, from a checkout or the unpacked source archive."""
import os
import re

from conan import ConanFile
from conan.errors import ConanInvalidConfiguration
from conan.tools.build import check_min_cppstd
from conan.tools.cmake import CMake, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load


class CorvaneCommon(ConanFile):
    name = "corvanecommon"
    description = "Common services for face recognition on RKNN boards"
    package_type = "shared-library"
    settings = "os", "arch", "compiler", "build_type"
    options = {"simulator": [True, False]}
    default_options = {"simulator": True}

    @property
    def _root(self):
        return os.path.join(self.recipe_folder, "..", "..")

    def set_version(self):
        header = load(self, os.path.join(self._root, "include", "corvane", "version.h"))
        self.version = re.search('CORVANE_VERSION_STRING "(.*)"', header).group(1)

    def export_sources(self):
        for pattern in ("CMakeLists.txt", "cmake/*", "debian/*", "include/*", "recorder/*", "simulator/*", "src/*"):
            copy(self, pattern, self._root, self.export_sources_folder)

    def validate(self):
        if self.settings.os != "Linux" or self.settings.arch not in ("x86_64", "armv8"):
            raise ConanInvalidConfiguration("it is for Linux on x86-64 and AArch64")
        if self.settings.compiler.get_safe("cppstd"):
            check_min_cppstd(self, 11)

    def layout(self):
        cmake_layout(self)

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["CORVANE_BUILD_TESTS"] = "OFF"
        toolchain.cache_variables["CORVANE_BUILD_TOOLS"] = "OFF"
        toolchain.cache_variables["CORVANE_BUILD_SIMULATOR"] = bool(self.options.simulator)
        toolchain.cache_variables["CORVANE_SIMULATOR_ONNX"] = "OFF"
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()

    def package_info(self):
        # The package brings its own CMake files; Conan's would know nothing of the runtime.
        self.cpp_info.set_property("cmake_find_mode", "none")
        self.cpp_info.set_property("pkg_config_name", "CorvaneCommon")
        self.cpp_info.builddirs = [os.path.join("lib", "cmake", "CorvaneCommon")]
        self.cpp_info.libs = ["CorvaneCommon"]
        self.cpp_info.sharedlinkflags = self.cpp_info.exelinkflags = ["-Wl,--allow-shlib-undefined"]
