# Reference values for GME: the primal problem, solved without the dual that the engine minimises.
#
# Maximise the entropy of p (K x M) and w (T x J), or minimise the cross entropy to priors, subject
# to y = X Z p + V w and to sums of 1. The constraints are linear in (p, w), so Newton's method on
# the Lagrangian (Karush-Kuhn-Tucker equations) from the uniform weights solves it; steps are cut so
# that weights stay positive. Base R alone. Run: Rscript gme_reference.R
x1 <- 1:12
x2 <- c(3, 5, 4, 6, 5, 8, 6, 9, 8, 7, 10, 9)
y <- c(10.2, 12.9, 15.1, 16.8, 19.2, 22.5, 23.1, 26.9, 28.8, 30.1, 33.9, 35.2)
X <- cbind(x1, x2, 1)
Z <- rbind(c(-10, -5, 0, 5, 10), c(-10, -5, 0, 5, 10), c(-40, -20, 0, 20, 40))

primal <- function(Z, V, q, u, X, y) {
  K <- nrow(Z); M <- ncol(Z); n <- length(y); J <- ncol(V)
  nu <- K * M + n * J
  p_at <- function(k) (k - 1) * M + 1:M
  w_at <- function(t) K * M + (t - 1) * J + 1:J
  A <- matrix(0, 2 * n + K, nu); r <- c(y, rep(1, K + n))
  for (t in 1:n) {
    for (k in 1:K) A[t, p_at(k)] <- X[t, k] * Z[k, ]
    A[t, w_at(t)] <- V[t, ]
    A[n + K + t, w_at(t)] <- 1
  }
  for (k in 1:K) A[n + k, p_at(k)] <- 1
  prior <- c(t(q), t(u))
  x <- prior; v <- rep(0, nrow(A))
  for (i in 1:200) {
    g <- log(x / prior) + 1
    rd <- g + t(A) %*% v; rp <- A %*% x - r
    # (A diag(x) A') dv = rp - A diag(x) rd ; dx = -x (rd + A' dv)
    S <- A %*% (x * t(A))
    dv <- solve(S, rp - A %*% (x * rd))
    dx <- -x * (rd + t(A) %*% dv)
    step <- 1
    while (any(x + step * dx <= 0)) step <- step * 0.9
    x <- as.vector(x + step * dx); v <- as.vector(v + step * dv)
    if (max(abs(rp)) < 1e-13 && max(abs(dx)) < 1e-14) break
  }
  P <- matrix(x[1:(K * M)], K, M, byrow = TRUE); W <- matrix(x[-(1:(K * M))], n, J, byrow = TRUE)
  b <- rowSums(P * Z); e <- rowSums(W * V)
  vz <- rowSums(P * Z^2) - b^2; vv <- rowSums(W * V^2) - e^2
  l <- v[1:n]
  H <- function(p, q) -rowSums(p * log(p)) / -rowSums(q * log(q))
  moments <- t(X) %*% X
  if (qr(X)$rank < ncol(X)) moments[] <- NaN
  cov <- mean(l^2) / mean(1 / vv)^2 * (if (anyNA(moments)) moments else solve(moments))
  cat("b", format(b, digits = 12), "\n")
  if (!anyNA(cov)) cat("se", format(sqrt(diag(cov)), digits = 12), "\n")
  cat("variance", format(vz, digits = 12), "\n")
  cat("entropy", format(H(P, q), digits = 12), " P", format(mean(H(P, q)), digits = 12),
      " W", format(mean(H(W, u)), digits = 12), "\n")
  cat("SSE", format(sum((y - X %*% b)^2), digits = 12), "\n")
}
V <- matrix(c(-10, 0, 10), 12, 3, byrow = TRUE)
cat("uniform priors\n")
primal(Z, V, matrix(1 / 5, 3, 5), matrix(1 / 3, 12, 3), X, y)
cat("priors\n")
q <- rbind(c(.1, .1, .2, .3, .3), c(.1, .2, .4, .2, .1), c(.05, .15, .5, .2, .1))
primal(Z, V, q, matrix(c(.2, .6, .2), 12, 3, byrow = TRUE), X, y)
Z <- matrix(c(-20, -10, 0, 10, 20), 3, 5, byrow = TRUE)
cat("no row 5, uniform priors\n")
primal(Z, V[-5, ], matrix(1 / 5, 3, 5), matrix(1 / 3, 11, 3), X[-5, ], y[-5])
cat("collinear, uniform priors\n")
primal(Z, V, matrix(1 / 5, 3, 5), matrix(1 / 3, 12, 3), cbind(x1, 2 * x1, 1), y)
