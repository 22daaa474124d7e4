"""Builds the package `zelmar` through the project's CMake.

`pip install --no-build-isolation .` configures a build folder of its own
(build-pip/), builds the target `zelmar_python` and installs the CMake
component "python" (the package, its extension, the host library and the
module's resources) into the wheel. ZV_JOBS caps the parallel compile jobs.
"""
import os
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = os.path.dirname(os.path.abspath(__file__))


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        build_dir = os.environ.get("ZV_PIP_BUILD_DIR", os.path.join(ROOT, "build-pip"))
        target = os.path.abspath(self.build_lib)
        jobs = os.environ.get("ZV_JOBS", str(os.cpu_count() or 1))
        if not os.path.exists(os.path.join(build_dir, "CMakeCache.txt")):
            subprocess.check_call(["cmake", "-S", ROOT, "-B", build_dir, "-G", "Ninja",
                                   "-DCMAKE_BUILD_TYPE=Release", f"-DPython_EXECUTABLE={sys.executable}"])
        subprocess.check_call(["cmake", "--build", build_dir, "-j", jobs, "--target", "zelmar_python"])
        subprocess.check_call(["cmake", "--install", build_dir, "--component", "python", "--prefix", target])


setup(
    packages=["zelmar", "zelmar.volume"],
    package_dir={"": "python"},
    ext_modules=[Extension("zelmar._native", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
    # setuptools' own build folder stays out of the CMake build folders.
    options={"build": {"build_base": os.path.join("build-pip", "setuptools")}},
    zip_safe=False,
)
