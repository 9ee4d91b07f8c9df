# R's times for the matrix kernels: milliseconds, best of ten. Its BLAS decides: La_library() says.
set.seed(1)
A <- matrix(runif(250000), 500)
B <- matrix(runif(250000), 500)
S <- crossprod(A) + 500 * diag(500)
best <- function(f, times = 10) min(replicate(times, {
  start <- proc.time()[["elapsed"]]
  for (i in 1:4) f()
  (proc.time()[["elapsed"]] - start) / 4
})) * 1000
line <- function(name, f) cat(sprintf("R      %-38s %8.2f ms\n", name, best(f)))
line("product 500 x 500", function() A %*% B)
line("inverse 500 x 500", function() solve(A))
line("determinant 500 x 500", function() det(A))
line("Cholesky 500 x 500", function() chol(S))
T <- S[1:300, 1:300]
G <- A[1:300, 1:300]
line("symmetric eigen 300 x 300", function() eigen(T, symmetric = TRUE))
line("general eigen 300 x 300", function() eigen(G))
line("svd 300 x 300", function() svd(G))
