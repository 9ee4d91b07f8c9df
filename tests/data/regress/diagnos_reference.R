# Makes diagnos_reference.txt: what DIAGNOSE prints, computed by R.
#   Rscript diagnos_reference.R      in this folder; the file in the repository is from R 4.2.2
# Every fit is an lm of its own (each split, each sample without a row, each recursive fit), so no
# update formula of the engine is used. gretl 2022c agrees on the textile data: reset 11.786698
# (squares) and 5.487748, modtest --white 4.950867, --breusch-pagan 2.528790, with --robust 4.899671,
# --arch 1 1.490029, cusum t(13) = 0.16155.
# Lines: C data|commands, L label|values behind it, in the order of the listing.
options(digits = 17)
out <- file("diagnos_reference.txt", "w")
num <- function(v) paste(formatC(v, digits = 11, width = 1, format = "g"), collapse = ",")
L <- function(label, v) cat("L", label, "|", num(v), "\n", sep = "", file = out)
chi <- function(label, v, df) L(label, c(v, df, pchisq(v, df, lower.tail = FALSE)))

report <- function(data, command, y, X, w = NULL) {   # X: regressors without the constant, named
  N <- length(y); K <- ncol(X) + 1; one <- rep(1, N)
  r <- if (is.null(w)) one else sqrt(w / mean(w))
  y <- y * r; A <- cbind(X * r, CONSTANT = r)         # everything below sees the weighted rows
  fit <- function(y, A) { f <- lm.fit(A, y); list(b = f$coefficients, e = f$residuals, S = sum(f$residuals^2), rank = f$rank) }
  o <- fit(y, A); e <- o$e; f <- y - e; S <- o$S; e2 <- e^2
  cat("C", data, "|", command, "\n", sep = "", file = out)
  # Hansen
  F <- cbind(A * e, VARIANCE = e2 - S / N)
  cums <- apply(F, 2, cumsum)
  for (i in 1:ncol(F)) L(sprintf("    %-8s", colnames(F)[i]), sum(cums[, i]^2) / (N * sum(F[, i]^2)))
  L("    JOINT", sum(diag(cums %*% solve(crossprod(F)) %*% t(cums))) / N)
  # Anderson-Darling
  z <- sort((e - mean(e)) / sd(e)); i <- 1:N
  a <- -N - mean((2 * i - 1) * (pnorm(z, log.p = TRUE) + pnorm(-rev(z), log.p = TRUE)))
  L(" ANDERSON-DARLING NORMALITY TEST STATISTIC =", a * (1 + .75 / N + 2.25 / N^2))
  # Heteroskedasticity
  Z <- A[, -K, drop = FALSE]
  aux <- function(v, Z) { g <- lm(v ~ Z); list(R2 = summary(g)$r.squared, SSR = sum((fitted(g) - mean(v))^2), df = g$rank - 1) }
  for (t in list(list(" E**2 ON YHAT:", f), list(" E**2 ON YHAT**2:", f^2), list(" E**2 ON LOG(YHAT**2):", log(f^2))))
    chi(t[[1]], N * aux(e2, t[[2]])$R2, 1)
  chi(" E**2 ON LAG(E**2) ARCH TEST:", (N - 1) * aux(e2[-1], e2[-N])$R2, 1)
  chi(" LOG(E**2) ON X (HARVEY) TEST:", aux(log(e2), Z)$SSR / (pi^2 / 2), K - 1)
  chi(" ABS(E) ON X (GLEJSER) TEST:", aux(abs(e), Z)$SSR / ((1 - 2 / pi) * S / N), K - 1)
  Zc <- sweep(Z, 2, colMeans(Z)); ZZ <- cbind(Zc, Zc^2); cross <- ZZ
  if (K > 2) for (i in 1:(K - 2)) for (j in (i + 1):(K - 1)) cross <- cbind(cross, Zc[, i] * Zc[, j])
  for (G in list(Zc, ZZ, cross)) {
    g <- aux(e2, G); h <- aux(e2 / (S / N), G)
    chi("           KOENKER(R2):", N * g$R2, g$df); chi("           B-P-G (SSR) :", h$SSR / 2, g$df)
  }
  # Jackknife
  B <- t(sapply(1:N, function(i) fit(y[-i], A[-i, ])$b))
  for (k in 1:K) L(sprintf(" %-8s", colnames(A)[k]),
                   c(mean(B[, k]), sqrt((N - 1) / N * sum((B[, k] - mean(B[, k]))^2))))
  # Recursive residuals, forward and backward, from a fit for every sample
  for (backward in c(FALSE, TRUE)) {
    s <- if (backward) N:1 else 1:N; n <- N - K; est <- list()
    w <- sapply((K + 1):N, function(t) {
      h <- s[1:(t - 1)]; x <- A[s[t], ]; b <- fit(y[h], A[h, ])$b
      V <- chol2inv(qr.R(q <- qr(A[h, ])))
      P <- matrix(0, K, K); P[q$pivot, q$pivot] <- V
      (y[s[t]] - sum(x * b)) / sqrt(1 + drop(t(x) %*% P %*% x))
    })
    if (!backward) for (t in (K + 1):N) L(sprintf(" %7d", s[t]), fit(y[s[1:t]], A[s[1:t], ])$b)
    m <- n / 2 - 1; width <- .64438 - .14596 * log(m) + .004865 * m - .00071789 * m * log(m)
    for (j in 1:n) L(sprintf("%6d", s[K + j]), c(w[j], sum(w[1:j]) / sqrt(sum(w^2) / n),
      .948 * sqrt(n) + 2 * .948 * j / sqrt(n), j / n - width, sum(w[1:j]^2) / sum(w^2), j / n + width))
    L(" HARVEY-COLLIER  [1977] RECURSIVE T-TEST =", mean(w) * sqrt(n) / sd(w))
    M <- n %/% 3
    L(" HARVEY-PHILLIPS [1974] HETEROSKEDASTICITY TEST =", sum(tail(w, M)^2) / sum(head(w, M)^2))
  }
  # Split samples
  pf1 <- function(...) pf(..., lower.tail = FALSE)
  for (n1 in (K + 1):(N - K - 1)) {
    S1 <- fit(y[1:n1], A[1:n1, ])$S; S2 <- fit(y[(n1 + 1):N], A[(n1 + 1):N, ])$S
    C <- ((S - S1 - S2) / K) / ((S1 + S2) / (N - 2 * K)); d1 <- n1 - K; d2 <- N - n1 - K
    G <- (S2 / d2) / (S1 / d1)
    L(sprintf("%5d%5d", n1, N - n1), c(S1, S2, C, pf1(C, K, N - 2 * K), G, d2, d1, pf1(G, d2, d1)))
  }
  # Correlogram
  q <- 0
  for (j in 1:(N %/% 3)) {
    if (j > 24) break
    l <- c(rep(0, j), e[1:(N - j)]); rho <- sum(e * l) / S; q <- q + rho^2 / (N - j)
    u <- fit(e, cbind(A, l)); R2 <- 1 - u$S / S
    L(sprintf("%5d ", j), c(rho, 1 / sqrt(N), rho * sqrt(N), sign(rho) * sqrt(N * R2),
      sum((e[(j + 1):N] - e[1:(N - j)])^2) / S, N * (N + 2) * q))
  }
  # RESET, FRESET
  ftest <- function(label, D) {
    u <- fit(y, cbind(A, D)); d2 <- N - K - ncol(D); v <- ((S - u$S) / ncol(D)) / (u$S / d2)
    L(label, c(v, ncol(D), d2, pf1(v, ncol(D), d2)))
  }
  g <- f / max(abs(f)); P <- poly(g, 4)
  for (p in 2:4) ftest(sprintf(" RESET(%d)=", p), if (is.null(w)) P[, 2:p, drop = FALSE] else outer(g, 2:p, "^"))
  a <- pi * (2 * f - max(f) - min(f)) / (max(f) - min(f)); b <- 2 * pi * sin(f)^2 - pi
  for (w in list(a, b)) for (j in 1:3) ftest(sprintf(" FRESET(%d)=", j),
    do.call(cbind, lapply(1:j, function(j) cbind(sin(j * w), cos(j * w)))))
}

d <- read.table("../textile.dat")
report("textile", "?OLS C I P", d$V2, cbind(I = d$V3, P = d$V4))
d <- read.table("counts.dat")
report("counts", "?OLS Y X1-X3", d$V1, cbind(X1 = d$V2, X2 = d$V3, X3 = d$V4))
report("counts", "?OLS Y X1-X3 / WEIGHT=W", d$V1, cbind(X1 = d$V2, X2 = d$V3, X3 = d$V4), d$V5)
close(out)
