from typing import Literal, Optional, Sequence, Tuple, Union, overload

import numpy as np
import numpy.typing as npt

_Method = Literal["nearest", "bilinear", "bicubic", "lanczos2", "lanczos3", "box"]

class Error(ValueError):
    identifier: str

class Warning(UserWarning):
    identifier: str

def rgb2gray(img: npt.ArrayLike) -> np.ndarray: ...
def rgb2hsv(img: npt.ArrayLike) -> np.ndarray: ...
def ind2rgb8(index: npt.ArrayLike, cmap: npt.ArrayLike) -> np.ndarray: ...
def grayto8(img: npt.ArrayLike) -> np.ndarray: ...
@overload
def cq(img: npt.ArrayLike, k: float, return_index: Literal[True] = ...) -> Tuple[np.ndarray, np.ndarray]: ...
@overload
def cq(img: npt.ArrayLike, k: float, return_index: Literal[False]) -> np.ndarray: ...
def imresize(img: npt.ArrayLike, weights: npt.ArrayLike, indices: npt.ArrayLike, dim: npt.ArrayLike) -> np.ndarray: ...
def resize(
    img: npt.ArrayLike,
    scale: Optional[float] = ...,
    size: Optional[Tuple[int, int]] = ...,
    method: _Method = ...,
    antialias: bool = ...,
) -> np.ndarray: ...
def call(name: str, *arrays: npt.ArrayLike, nargout: int = ...) -> Union[np.ndarray, Tuple[Optional[np.ndarray], ...]]: ...
