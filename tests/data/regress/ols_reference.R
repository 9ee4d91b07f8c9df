# Makes ols_reference.txt (and counts.dat): what OLS prints, computed by R.
#   Rscript ols_reference.R      in this folder; the file in the repository is from R 4.2.2
# Fits come from lm where lm has them and from plain matrix algebra else; p-values from pf, pnorm,
# pchisq. Lines: C data|command, L label|value, T temporary|value|.., R name|the seven columns of a row.
options(digits = 17)
set.seed(20)
n <- 40
x1 <- round(rnorm(n, 5, 2), 3); x2 <- round(x1 / 2 + runif(n, 0, 3), 3); x3 <- round(rexp(n), 3)
y <- round(2 + 0.6 * x1 + 0.4 * x2 + 0.5 * x3 + rt(n, 4) * (0.5 + x3 / 3), 3)
write.table(data.frame(y, x1, x2, x3, rep(1:4, 10)), "counts.dat", row.names = FALSE,
            col.names = FALSE)

num <- function(v) paste(formatC(v, digits = 11, width = 1, format = "g"), collapse = ",")
cell <- c(.0019, .0007, .0009, .0012, .0015, .0020, .0025, .0032, .0040, .0049, .0059, .0072, .0087,
  .0102, .0120, .0140, .0160, .0183, .0206, .0230, .0254, .0278, .0301, .0323, .0342, .0361, .0375,
  .0386, .0395, .0398)

# X has the constant last. C is (X'X)^-1 or its like, `scaled` when sigma2 must not multiply it.
report <- function(data, command, y, X, b, C, SSE, w = NULL, UT = FALSE, DN = FALSE, constant = TRUE,
                   scaled = FALSE, NQ = 0, N = length(y), XMAXL = 0, NPOP = 0, SSEu = NA,
                   SSEgiven = NA, normality = TRUE) {
  L <- function(label, v) cat("L", label, "|", num(v), "\n", sep = "", file = out)
  temps <- c(); Tm <- function(name, v) temps <<- c(temps, paste0(name, "|", num(v)))
  cat("C", data, "|", command, "\n", sep = "", file = out)
  K <- length(b); k <- K - NQ; ww <- if (is.null(w)) rep(1, length(y)) else w
  e <- drop(y - X %*% b); obs <- y
  mean_w <- function(v) sum(ww * v) / sum(ww)
  ss <- function(v) sum(ww * (v - mean_w(v))^2)
  ybar <- mean_w(y); SST <- ss(y); RAW <- SST + ybar^2 * sum(ww)
  if (!is.na(SSEgiven)) SSE <- SSEgiven
  d0 <- N - k; DF <- if (DN) N else d0
  M <- SSE / N; R2 <- 1 - SSE / SST; R2a <- R2 - (k - 1) / d0 * (1 - R2)
  s2 <- SSE / DF
  if (NPOP > 0) { fpc <- 1 - N / NPOP; s2 <- s2 * fpc; L(" FINITE POPULATION CORRECTION=", fpc) }
  if (!is.na(SSEu)) {
    F <- ((SSE - SSEu) / NQ) / (SSEu / (N - K))
    L(" F TEST ON RESTRICTIONS=", F); Tm("PVAL", pf(F, NQ, N - K, lower.tail = FALSE))
  }
  LLF <- -N / 2 * log(2 * pi * M) - N / 2 + XMAXL
  L("  R-SQUARE =", R2); L("R-SQUARE ADJUSTED =", R2a)
  L(" VARIANCE OF THE ESTIMATE-SIGMA**2 =", s2); L(" STANDARD ERROR OF THE ESTIMATE-SIGMA =", sqrt(s2))
  L(" SUM OF SQUARED ERRORS-SSE=", SSE); L(" MEAN OF DEPENDENT VARIABLE =", ybar)
  L(" LOG OF THE LIKELIHOOD FUNCTION =", LLF)
  if (!constant) L(" RAW MOMENT R-SQUARE =", 1 - SSE / RAW)
  Tm("R2", R2); Tm("ADR2", R2a); Tm("SIG2", s2); Tm("LLF", LLF); Tm("RAW", 1 - SSE / RAW)
  Tm("SSE", SSE); Tm("N", N); Tm("K", k); Tm("DF", DF)
  LAIC <- log(M) + 2 * k / N; LSC <- log(M) + k * log(N) / N
  sel <- c((k / N + 1) * s2, LAIC, LSC, M / (1 - k / N)^2, M * log(N)^(2 * k / N),
           M / (1 - 2 * k / N), M * (N + 2 * k) / N, exp(LSC), exp(LAIC))
  L("PREDICTION ERROR - FPE =", sel[1]); L("CRITERION - LOG AIC =", sel[2])
  L("CRITERION - LOG SC =", sel[3]); L("VALIDATION - GCV =", sel[4])
  L("HANNAN AND QUINN (1979) CRITERION =", sel[5]); L("RICE (1984) CRITERION =", sel[6])
  L("SHIBATA (1981) CRITERION =", sel[7]); L("CRITERION - SC =", sel[8])
  L("CRITERION - AIC =", sel[9])
  for (i in 1:9) Tm(c("FPE", "LAIC", "LSC", "GCV", "HQ", "RICE", "SHIB", "SC", "AIC")[i], sel[i])
  if (constant) {
    Tm("SST", SST); Tm("SSR", SST - SSE); Tm("ANF", (SST - SSE) / (k - 1) / s2)
  }
  Tm("ZSST", RAW); Tm("ZSSR", RAW - SSE); Tm("ZDF", k); Tm("ZANF", (RAW - SSE) / k / s2)
  V <- if (scaled) C else C * s2
  for (i in 1:K) {
    se <- sqrt(V[i, i]); t <- b[i] / se
    p <- if (DN) 2 * pnorm(-abs(t)) else pf(t^2, 1, DF, lower.tail = FALSE)
    xb <- mean_w(X[, i]); last <- constant && i == K
    std <- if (last) 0 else b[i] * sqrt(ss(X[, i]) / SST)
    cat("R", colnames(X)[i], "|", num(c(b[i], se, t, p, t / sqrt(t^2 + d0), std, b[i] * xb / ybar)),
        "\n", sep = "", file = out)
  }
  if (!is.null(w) && !UT) { e <- e * sqrt(w); obs <- y * sqrt(w) }
  sep <- if (DF > 0) sqrt(SSE / DF) else 1
  m <- length(e); nn <- N; d <- diff(e)
  DW <- sum(d^2) / sum(e^2); RHO <- sum(e[-1] * e[-m]) / (sum(e^2) - e[m]^2)
  f <- obs - e; R2op <- cor(obs, f)^2
  L(" DURBIN-WATSON =", DW); L("VON NEUMANN RATIO =", nn / (nn - 1) * DW); L("RHO =", RHO)
  L("RESIDUAL VARIANCE =", sum(e^2) / DF); L(" SUM OF ABSOLUTE ERRORS=", sum(abs(e)))
  L(" R-SQUARE BETWEEN OBSERVED AND PREDICTED =", R2op)
  Tm("DW", DW); Tm("RHO", RHO); Tm("R2OP", R2op)
  pos <- sum(e > 0); neg <- sum(e < 0); a <- 2 * pos * neg; q <- pos + neg
  runs <- 1 + sum((e[-1] > 0) != (e[-m] > 0))
  L("NORMAL STATISTIC =", (runs - (a / q + 1)) / sqrt(a * (a - q) / (q^2 * (q - 1))))
  m1 <- sum(e) / nn; m2 <- sum(e^2) / nn; m3 <- sum(e^3) / nn; m4 <- sum(e^4) / nn
  JB <- nn * (m3^2 / (6 * m2^3) + (m4 / m2^2 - 3)^2 / 24 + 1.5 * m1^2 / m2 - m3 * m1 / m2^2)
  if (normality) Tm("JB", JB)
  z <- e - m1; v <- sum(e^2) / nn - m1^2
  c3 <- m3 - 3 * m1 * m2 + 2 * m1^3; c4 <- m4 - 4 * m1 * m3 + 6 * m2 * m1^2 - 3 * m1^4
  S2 <- nn * v / (nn - 1)
  g1 <- nn^2 / ((nn - 1) * (nn - 2)) * c3 / S2^1.5
  g2 <- nn^2 / ((nn - 1) * (nn - 2) * (nn - 3)) * ((nn + 1) * c4 - 3 * (nn - 1) * v^2) / S2^2
  if (normality) L(" COEFFICIENT OF SKEWNESS =", g1)
  if (normality) L(" COEFFICIENT OF EXCESS KURTOSIS =", g2)
  if (constant && normality) L("CHI-SQUARE(2 DF)=", JB)
  ladder <- rbind(c(4, 100, 6), c(8, 120, 10), c(10, 150, 12), c(13, 200, 15), c(18, 300, 20),
                  c(28, 600, 30))
  groups <- 60
  for (i in 6:1) if (K < ladder[i, 1] && nn <= ladder[i, 2]) groups <- ladder[i, 3]
  place <- pmin(pmax(trunc(10 * e / sep + 31), 1), 60)
  g <- function(c) (c - 1) %/% (60 / groups) + 1
  seen <- tabulate(g(place), groups); want <- nn * tapply(c(cell, rev(cell)), g(1:60), sum)
  if (groups - K - 2 >= 1 && normality) L(" CHI-SQUARE =", sum((seen - want)^2 / want))
  cat("T", paste(temps, collapse = "|"), "\n", sep = "", file = out)
}

suite <- function(data, names, y, X, w, R, r, restrict) {
  X <- cbind(X, CONSTANT = 1); K <- ncol(X); N <- length(y)
  form <- paste("OLS", names)
  tail <- "RSTAT ANOVA GF LM"
  C <- solve(crossprod(X)); plain <- lm(y ~ X - 1); b <- coef(plain); e <- resid(plain)
  SSE <- sum(e^2)
  go <- function(opt, ..., after = "") report(data, paste0(form, " / ", tail, " ", opt, after), ...)
  stopifnot(abs(logLik(plain) - (-N / 2 * log(2 * pi * SSE / N) - N / 2)) < 1e-8)
  go("", y, X, b, C, SSE)
  go("METHOD=NORMAL", y, X, b, C, SSE)
  go("DN", y, X, b, C, SSE, DN = TRUE)
  go("NPOP=1000", y, X, b, C, SSE, NPOP = 1000)
  go("INSIG2=2.5", y, X, b, C, SSE, SSEgiven = 2.5 * (N - K))
  X0 <- X[, -K, drop = FALSE]; none <- lm(y ~ X0 - 1)
  for (m in c("GS", "NORMAL"))
    go(paste0("NOCONSTANT METHOD=", m), y, X0, coef(none), solve(crossprod(X0)),
       sum(resid(none)^2), constant = FALSE)
  S <- crossprod(X * e); go("HETCOV", y, X, b, C %*% S %*% C, SSE, scaled = TRUE)
  for (l in 1:2) {
    G <- crossprod((X * e)[-(1:l), ], (X * e)[1:(N - l), ]); S <- S + (1 - l / 3) * (G + t(G))
  }
  go("AUTCOV=2", y, X, b, C %*% S %*% C, SSE, scaled = TRUE)
  v <- w / mean(w); wl <- lm(y ~ X - 1, weights = v); Cw <- solve(crossprod(X * sqrt(v)))
  Sw <- sum(v * resid(wl)^2); ll <- sum(log(sqrt(v)))
  go("WEIGHT=W", y, X, coef(wl), Cw, Sw, w = v, XMAXL = ll)
  go("WEIGHT=W METHOD=NORMAL", y, X, coef(wl), Cw, Sw, w = v, XMAXL = ll)
  go("WEIGHT=W UT", y, X, coef(wl), Cw, Sw, w = v, XMAXL = ll, UT = TRUE)
  # Ridge on the centred moments.
  A <- crossprod(scale(X0, scale = FALSE)); Ai <- solve(A + 0.05 * diag(diag(A), K - 1))
  rb <- drop(Ai %*% crossprod(scale(X0, scale = FALSE), y - mean(y))); xb <- colMeans(X0)
  rb <- c(rb, mean(y) - sum(xb * rb))
  Cr <- rbind(cbind(Ai, -Ai %*% xb), c(-xb %*% Ai, 1 / N + xb %*% Ai %*% xb))
  go("RIDGE=0.05", y, X, rb, Cr, sum((y - X %*% rb)^2))
  # Restricted.
  D <- solve(R %*% C %*% t(R)); q <- nrow(R)
  bs <- drop(b - C %*% t(R) %*% D %*% (R %*% b - r)); Cs <- C - C %*% t(R) %*% D %*% R %*% C
  go("RESTRICT", y, X, bs, Cs, sum((y - X %*% bs)^2), NQ = q, SSEu = SSE, after = restrict)
}

out <- file("ols_reference.txt", "w")
d <- as.matrix(read.table("../textile.dat")); colnames(d) <- c("T", "C", "I", "P")
suite("textile", "C I P", d[, "C"], d[, c("I", "P")], d[, "T"] - 1920, rbind(c(1, 1, 0)), 0,
      ";RESTRICT I+P=0;END")
d <- as.matrix(read.table("../nist/Longley.dat", skip = 60))
colnames(d) <- c("Y", paste0("X", 1:6))
# Two regressors: all six are for the certified values; here rounding in R would show.
suite("longley", "Y X3 X4", d[, 1] / 1000, d[, 4:5] / 1000, 1:16, rbind(c(1, -1, 0)), 0,
      ";RESTRICT X3-X4=0;END")
suite("counts", "Y X1 X2 X3", y, cbind(X1 = x1, X2 = x2, X3 = x3), rep(1:4, 10),
      rbind(c(1, 1, 0, 0), c(1, 0, -1, 0)), c(1, 0), ";RESTRICT X1+X2=1;RESTRICT X1-X3=0;END")
# Replication counts: the regression on the repeated rows.
w <- rep(1:4, 10); X <- cbind(X1 = x1, X2 = x2, X3 = x3, CONSTANT = 1)
rep_fit <- lm(y ~ X - 1, weights = w)
report("counts", "OLS Y X1 X2 X3 / RSTAT ANOVA REPLICAT WEIGHT=W", y, X, coef(rep_fit),
       solve(crossprod(X * sqrt(w))), sum(w * resid(rep_fit)^2), w = w, UT = TRUE, N = sum(w),
       normality = FALSE)
close(out)
