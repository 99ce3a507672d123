"""The Conan package of the sources that it came with: conan create packaging/conan"""

import os
import re

from conan import ConanFile
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load

SOURCES = ("CMakeLists.txt", "LICENSE", "cmake/*", "include/*", "kit/CMakeLists.txt", "kit/include/*", "kit/src/*",
           "src/*")


class Sqldb(ConanFile):
    name = "sqldb"
    description = "Object layer over an SQLite 3 database file"
    license = "MIT"
    settings = "os", "compiler", "build_type", "arch"
    package_type = "library"
    options = {"shared": [True, False]}
    default_options = {"shared": True}

    def _top(self):
        return os.path.join(self.recipe_folder, os.pardir, os.pardir)

    def set_version(self):
        lists = load(self, os.path.join(self._top(), "CMakeLists.txt"))
        self.version = re.search(r"project\(sqldb VERSION ([0-9.]+)", lists).group(1)

    def export_sources(self):
        for pattern in SOURCES:
            copy(self, pattern, src=self._top(), dst=self.export_sources_folder)

    # Both are in the headers, and applications call SQLite themselves.
    def requirements(self):
        self.requires("sqlite3/[>=3.40 <4]", transitive_headers=True, transitive_libs=True)
        self.requires("boost/[>=1.74 <2]", transitive_headers=True, options={"header_only": True})

    def layout(self):
        cmake_layout(self)

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.variables["SQLDB_BUILD_TESTS"] = False
        toolchain.variables["SQLDB_BUILD_EXAMPLES"] = False
        toolchain.generate()
        CMakeDeps(self).generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        copy(self, "LICENSE", src=self.source_folder, dst=os.path.join(self.package_folder, "licenses"))
        CMake(self).install()

    def package_info(self):
        core = self.cpp_info.components["sqldb"]
        core.libs = ["sqldb"]
        core.requires = ["sqlite3::sqlite3", "boost::headers"]
        core.set_property("cmake_target_name", "sqldb::sqldb")
        kit = self.cpp_info.components["kit"]
        kit.libs = ["sqldb_kit"]
        kit.requires = ["sqldb"]
        kit.set_property("cmake_target_name", "sqldb::kit")
